// Trace channels: each a ring of records, which callers add to, and a pair of rotating files, which
// one thread writes from the ring by spdlog. A line reads
//
//   2026-01-31T08:00:00.123456Z [process] lum_info #18 [lum_api][tid:4711]LUM_INFO:message
//
// with the channel, the trace point's number and the caller's own line behind the process's name.
// What a killed process left in its rings is written to the files when they are opened again.
#include "lum_linux/traces.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "ctrace.h"
#include "lum_linux/disks.h"
#include "lum_linux/system.h"
#include "lum_linux/trace_rings.h"
#include "services/immortal.h"
#include "services/signals_blocked.h"
#include "traces/channel.h"

namespace {

using lum_linux::channel;
using lum_linux::ends_within;
using lum_linux::is_before;
using lum_linux::is_behind;
using lum_linux::name_process;
using lum_linux::open_channel;
using lum_linux::open_without_files;
using lum_linux::renew_ring;
using lum_linux::ring;
using lum_linux::write_next;
using std::chrono::steady_clock;

constexpr size_t longest_name = 64;
constexpr uint32_t smallest_size = 32768;  // bytes of a channel; smaller ones are enlarged
constexpr std::chrono::milliseconds between_rounds{20};  // of the writer, while lines come
constexpr std::chrono::milliseconds patience{1500};      // with a disk
constexpr std::chrono::seconds look_again{10};           // where patience has ended

// The place of a channel. A handle is the place's number, from 1, and how often the place had been
// used before: the handle of a channel that is closed means nothing.
struct channel_slot {
  std::mutex lock;
  uint32_t uses = 0;
  // The use in which the channel was turned off; 0 while it is on. Read without the lock: a line of
  // a channel that is off is dropped before anything is made of it.
  std::atomic<uint32_t> off_in = 0;
  // What callers need, without the lock: the ring of the channel and the use that it is of. A ring
  // that is taken away is kept until no caller is left.
  std::atomic<ring *> lines = nullptr;
  std::atomic<uint32_t> used_in = 0;
  std::atomic<uint32_t> callers = 0;
  std::shared_ptr<channel> open;
};

constexpr size_t channel_slots = 64;
constexpr unsigned uses_shift = 8;

// Lives until the process ends, for threads trace until then.
struct trace_facility {
  std::array<channel_slot, channel_slots> slots;
  std::mutex lock;  // guards all below; taken before a slot's
  std::map<std::string, std::filesystem::path> directories;
  std::string process_name;
  std::atomic<pid_t> writer_of = 0;            // the process whose writer runs
  std::atomic<uint32_t> sleeping = 0;          // whether it waits to be woken
  std::atomic<steady_clock::rep> gave_up = 0;  // when a flush did; 0: none has
};

trace_facility &facility() {
  static lum_linux::immortal<trace_facility> the_facility;
  return *the_facility;
}

// The slot that a handle means, whatever is in it; null when it means none.
channel_slot *slot_of(ctrace_handle handle) {
  const uint64_t number = handle & ((1u << uses_shift) - 1);
  return number == 0 || number > channel_slots ? nullptr : &facility().slots[number - 1];
}

bool is_off(ctrace_handle handle) {
  const channel_slot *slot = slot_of(handle);
  if (slot == nullptr) return false;
  const uint32_t off_in = slot->off_in.load(std::memory_order_relaxed);
  return off_in != 0 && off_in == handle >> uses_shift;
}

// The channel that a handle means; null when it means none.
std::shared_ptr<channel> channel_of(ctrace_handle handle) {
  channel_slot *const slot = slot_of(handle);
  if (slot == nullptr) return nullptr;
  const std::lock_guard hold(slot->lock);
  return slot->uses == handle >> uses_shift ? slot->open : nullptr;
}

std::vector<std::shared_ptr<channel>> open_channels() {
  std::vector<std::shared_ptr<channel>> all;
  for (channel_slot &slot : facility().slots) {
    const std::lock_guard hold(slot.lock);
    if (slot.open) all.push_back(slot.open);
  }
  return all;
}

// A caller's use of a slot's ring, which stays as long as it is used.
class used_ring {
 public:
  explicit used_ring(ctrace_handle handle) : slot_(slot_of(handle)) {
    if (slot_ == nullptr) return;
    slot_->callers.fetch_add(1, std::memory_order_seq_cst);
    if (slot_->used_in.load(std::memory_order_relaxed) != handle >> uses_shift) return;
    lines_ = slot_->lines.load(std::memory_order_seq_cst);
    // The slot may have been taken anew between the two.
    if (slot_->used_in.load(std::memory_order_seq_cst) != handle >> uses_shift) lines_ = nullptr;
  }
  ~used_ring() {
    if (slot_ != nullptr) slot_->callers.fetch_sub(1, std::memory_order_seq_cst);
  }
  used_ring(const used_ring &) = delete;
  used_ring &operator=(const used_ring &) = delete;
  explicit operator bool() const { return lines_ != nullptr; }
  ring *operator->() const { return lines_; }

 private:
  channel_slot *slot_;
  ring *lines_ = nullptr;
};

bool usable_name(const char *name) {
  if (name == nullptr) return false;
  const std::string_view text(name, strnlen(name, longest_name));
  return !text.empty() && text.size() < longest_name && text.front() != '.' &&
         text.find('/') == std::string_view::npos;
}

ctrace_handle put_into_slot(std::shared_ptr<channel> opened) {
  for (size_t i = 0; i < channel_slots; ++i) {
    channel_slot &slot = facility().slots[i];
    const std::lock_guard hold(slot.lock);
    if (slot.open != nullptr) continue;
    slot.open = std::move(opened);
    slot.used_in.store(++slot.uses, std::memory_order_seq_cst);
    slot.lines.store(slot.open->lines.get(), std::memory_order_seq_cst);
    return static_cast<ctrace_handle>(slot.uses) << uses_shift | (i + 1);
  }
  return 0;
}

// Has the channel's callers add to that ring from now on, and waits until none uses another.
void have_callers_use(ring *lines, const channel &of) {
  for (channel_slot &slot : facility().slots) {
    const std::lock_guard hold(slot.lock);
    if (slot.open.get() != &of) continue;
    slot.lines.store(lines, std::memory_order_seq_cst);
    while (slot.callers.load(std::memory_order_seq_cst) != 0) std::this_thread::yield();
  }
}

// Writes what there is, with the files held. Returns whether something is left.
bool write_all(channel &one) {
  try {
    if (one.lines->is_lost()) {
      const std::unique_ptr<ring> lost = renew_ring(one);
      have_callers_use(one.lines.get(), one);
    }
    while (write_next(one)) {
    }
  } catch (const std::exception &) {  // no memory; the next round
  }
  return is_behind(one);
}

bool drain(channel &one) {
  const std::lock_guard hold(one.files);
  return write_all(one);
}

// A disk that has just kept somebody waiting is not waited for again.
steady_clock::duration patience_now() {
  const steady_clock::rep gave_up = facility().gave_up.load();
  const steady_clock::time_point last{steady_clock::duration(gave_up)};
  const bool is_patient = gave_up == 0 || steady_clock::now() - last > look_again;
  return is_patient ? patience : steady_clock::duration();
}

// The files, waiting a while for whoever has them: the writer, with a disk that takes its time.
std::unique_lock<std::mutex> hold_files(channel &one, steady_clock::time_point end) {
  std::unique_lock hold(one.files, std::try_to_lock);
  while (!hold && steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (hold.try_lock()) break;
  }
  return hold;
}

void wake_writer() {
  std::atomic<uint32_t> &sleeping = facility().sleeping;
  if (sleeping.load(std::memory_order_seq_cst) == 0) return;
  if (sleeping.exchange(0, std::memory_order_seq_cst) != 0) sleeping.notify_one();
}

bool has_writer() { return facility().writer_of.load() == ::getpid(); }

// Waits until the writer has had its turn with what has been traced so far, or for a while.
void flush(channel &one) {
  if (!has_writer()) {
    drain(one);
    return;
  }
  const auto end = steady_clock::now() + patience_now();
  std::optional<uint64_t> wanted;
  for (;;) {
    wake_writer();
    if (const auto hold = hold_files(one, end); hold) {
      if (!wanted) wanted = one.lines->head();
      if (!is_before(one.next, *wanted)) return;
    }
    const auto now = steady_clock::now();
    if (now >= end) {
      facility().gave_up = now.time_since_epoch().count();
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

bool drain_all() {
  bool is_left = false;
  for (const auto &one : open_channels()) is_left = drain(*one) || is_left;
  return is_left;
}

// Sleeps until a line comes, then looks every moment while more do.
void write_on() {
  ::pthread_setname_np(::pthread_self(), "lum-traces");
  std::atomic<uint32_t> &sleeping = facility().sleeping;
  for (;;) {
    try {
      if (!drain_all()) {
        sleeping.store(1, std::memory_order_seq_cst);
        if (!drain_all()) sleeping.wait(1, std::memory_order_seq_cst);
        sleeping.store(0, std::memory_order_seq_cst);
        drain_all();
      }
    } catch (const std::exception &) {  // no memory; the next round
    }
    std::this_thread::sleep_for(between_rounds);
  }
}

// A forked process has no writer until it opens a channel. Without a thread for it, lines are
// written when the channels are tended.
void start_writer() {
  if (facility().writer_of.exchange(::getpid()) == ::getpid()) return;
  facility().sleeping = 0;
  try {
    const lum_linux::signals_blocked for_it;
    std::thread(write_on).detach();
  } catch (const std::system_error &) {
    facility().writer_of = 0;
  }
}

// Opens it, unless its disk has not answered after a while: whoever opens it then stays behind,
// with a channel of its own, and false is the answer.
bool open_in_time(const std::shared_ptr<channel> &opened) {
  const auto patience_left = patience_now();
  if (patience_left == steady_clock::duration()) return false;
  const auto has_failed = std::make_shared<std::atomic<bool>>(false);
  const bool has_ended = ends_within(
      std::chrono::duration_cast<std::chrono::milliseconds>(patience_left), [opened, has_failed] {
        try {
          open_channel(*opened);
        } catch (const std::exception &) {
          *has_failed = true;
        }
      });
  if (!has_ended) facility().gave_up = steady_clock::now().time_since_epoch().count();
  if (has_ended && *has_failed) throw std::bad_alloc();
  return has_ended;
}

// With its files, or without when their disk does not answer. May throw.
std::shared_ptr<channel> open_described(const std::function<std::shared_ptr<channel>()> &describe) {
  std::shared_ptr<channel> opened = describe();
  try {
    if (open_in_time(opened)) return opened;
  } catch (const std::system_error &) {  // no thread to do it on
    open_channel(*opened);
    return opened;
  }
  opened = describe();
  open_without_files(*opened, "its disk does not answer");
  return opened;
}

}  // namespace

// A channel whose files cannot be had is open all the same, and its lines are counted as lost until
// they can.
cerrno ctrace_open_internal(ctrace_handle *handle, const char *name, uint32_t size, uint32_t points,
                            const char *directory_key, const char *digest, uint32_t flags) {
  if (handle == nullptr || !usable_name(name) || flags != 0) return EINVAL;
  if (directory_key == nullptr || digest == nullptr) return EINVAL;
  try {
    const std::lock_guard hold(facility().lock);
    const auto directory = facility().directories.find(directory_key);
    if (directory == facility().directories.end()) return ENOENT;
    auto opened = open_described([&] {
      auto described = std::make_shared<channel>();
      described->status.name = name;
      described->status.file = directory->second / (std::string(name) + ".log");
      described->status.size = std::max(size, smallest_size);
      described->status.points = points;
      described->status.digest = digest;
      described->process_name = facility().process_name;
      return described;
    });
    start_writer();
    const ctrace_handle placed = put_into_slot(std::move(opened));
    if (placed == 0) return EMFILE;
    *handle = placed;
    return 0;
  } catch (const std::exception &) {
    return ENOMEM;
  }
}

// Configuration is a matter of traces_enable() here, and needs no event manager.
cerrno ctrace_enable_configuration(ctrace_handle handle, void *) {
  const auto found = channel_of(handle);
  if (!found) return EBADF;
  const std::lock_guard hold(found->state);
  found->configurable = true;
  return 0;
}

// Lines that were traced before have the name of before.
void ctrace_set_process_name(const char *name) {
  if (name == nullptr) return;
  try {
    const std::lock_guard hold(facility().lock);
    facility().process_name = name;
    for (const auto &one : open_channels()) {
      flush(*one);
      const auto files = hold_files(*one, steady_clock::now() + patience);
      if (!files) continue;
      name_process(*one, name);
    }
  } catch (const std::exception &) {  // the old name stays
  }
}

cerrno ctrace_internal(ctrace_handle handle, uint32_t point, uint32_t nargs, uint32_t,
                       const char *signature, const char *format, ...) {
  if (handle == 0) return 0;
  if (format == nullptr) return EINVAL;
  if (is_off(handle)) return 0;
  const used_ring lines(handle);
  if (!lines) return EBADF;
  va_list arguments;
  va_start(arguments, format);
  const bool is_put = lines->put(point, nargs, signature, format, arguments);
  va_end(arguments);
  wake_writer();
  return is_put ? 0 : EINVAL;
}

void ctrace_dump(ctrace_handle handle) {
  try {
    if (const auto found = channel_of(handle)) flush(*found);
  } catch (const std::exception &) {  // no memory; the writer goes on
  }
}

void ctrace_close(ctrace_handle handle) {
  channel_slot *const slot = slot_of(handle);
  if (slot == nullptr) return;
  std::shared_ptr<channel> closed;
  {
    const std::lock_guard hold(slot->lock);
    if (slot->open == nullptr || slot->uses != handle >> uses_shift) return;
    slot->lines.store(nullptr, std::memory_order_seq_cst);
    while (slot->callers.load(std::memory_order_seq_cst) != 0) std::this_thread::yield();
    slot->off_in = 0;
    closed = std::move(slot->open);
  }
  // The writer does not come to it any more.
  const auto hold = hold_files(*closed, steady_clock::now() + patience_now());
  if (hold) write_all(*closed);
}

namespace lum_linux {

cerrno traces_set_directory(const std::string &key, const std::filesystem::path &directory) {
  if (key.empty() || directory.empty()) return EINVAL;
  const std::lock_guard hold(facility().lock);
  facility().directories[key] = directory;
  return 0;
}

cerrno traces_enable(std::string_view channel_name, bool on) {
  for (channel_slot &slot : facility().slots) {
    const std::lock_guard hold(slot.lock);
    if (!slot.open || slot.open->status.name != channel_name) continue;
    const std::lock_guard hold_state(slot.open->state);
    if (!slot.open->configurable) return EPERM;
    slot.open->status.enabled = on;
    slot.off_in = on ? 0 : slot.uses;
    return 0;
  }
  return ENOENT;
}

void traces_tend() {
  try {
    for (const auto &one : open_channels()) {
      if (!has_writer()) drain(*one);
      {
        const std::lock_guard hold(one->state);
        if (!one->status.enabled || one->status.reason.empty()) continue;
      }
      const std::unique_lock hold(one->files,
                                  std::try_to_lock);  // the writer may wait for the disk
      if (hold) try_again(*one);
    }
  } catch (const std::exception &) {  // the next time
  }
}

void traces_flush() {
  try {
    for (const auto &one : open_channels()) flush(*one);
  } catch (const std::exception &) {  // no memory; the writer goes on
  }
}

std::vector<trace_channel_status> traces_status() {
  std::vector<trace_channel_status> all;
  for (const auto &one : open_channels()) {
    const std::lock_guard hold(one->state);
    all.push_back(one->status);
  }
  return all;
}

}  // namespace lum_linux
