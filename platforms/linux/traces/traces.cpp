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
#include <map>
#include <memory>
#include <mutex>
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
#include "traces/ring.h"

namespace {

using lum_linux::system_log;
using lum_linux::trace_channel_status;
using std::chrono::steady_clock;

constexpr size_t longest_name = 64;
constexpr uint32_t smallest_size = 32768;  // bytes of a channel; smaller ones are enlarged
constexpr std::chrono::seconds look_after{5};
constexpr std::chrono::milliseconds between_rounds{20};  // of the writer, while lines come
constexpr std::chrono::milliseconds patience{1000};  // with a record that is not finished, a disk

// What is at a path; no file at all is the same everywhere.
struct file_identity {
  dev_t device = 0;
  ino_t number = 0;
  bool operator==(const file_identity &) const = default;
};

file_identity identity_of(const std::filesystem::path &file) {
  struct stat found = {};
  if (::stat(file.c_str(), &found) != 0) return {};
  return {found.st_dev, found.st_ino};
}

// One channel, for as long as it is open. `files` is held while the disk is written, and taken
// before `state`, which is held for moments.
struct channel {
  std::mutex state;
  trace_channel_status status;  // name, file, size, points and digest stay as they are
  bool configurable = false;

  std::timed_mutex files;  // guards all below
  std::string process_name;
  std::unique_ptr<spdlog::sinks::rotating_file_sink_st> sink;  // null after a failure
  file_identity file;                                          // that the sink writes to
  steady_clock::time_point look_at;  // when to look for the file, or to open it again
  std::unique_ptr<lum_linux::ring> lines;
  uint64_t next = 0;                                      // the place that is written next
  std::optional<steady_clock::time_point> waiting_since;  // for a record that is not finished
};

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
  std::atomic<lum_linux::ring *> lines = nullptr;
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
  std::atomic<pid_t> writer_of = 0;    // the process whose writer runs
  std::atomic<uint32_t> sleeping = 0;  // whether it waits to be woken
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
  lum_linux::ring *operator->() const { return lines_; }

 private:
  channel_slot *slot_;
  lum_linux::ring *lines_ = nullptr;
};

std::unique_ptr<spdlog::formatter> line_formatter(const std::string &process_name,
                                                  const std::string &channel_name) {
  std::string fixed;
  for (const char c : fmt::format("[{}] {}", process_name, channel_name)) {
    fixed.append(c == '%' ? 2 : 1, c);
  }
  return std::make_unique<spdlog::pattern_formatter>("%Y-%m-%dT%H:%M:%S.%fZ " + fixed + " %v",
                                                     spdlog::pattern_time_type::utc);
}

bool usable_name(const char *name) {
  if (name == nullptr) return false;
  const std::string_view text(name, strnlen(name, longest_name));
  return !text.empty() && text.size() < longest_name && text.front() != '.' &&
         text.find('/') == std::string_view::npos;
}

// Opens the channel's files. May throw.
void open_files(channel &to_open) {
  trace_channel_status &status = to_open.status;
  // Either would hold up whoever traces, for long or until somebody reads.
  if (lum_linux::folder_is_waited_for(status.file.parent_path())) {
    throw spdlog::spdlog_ex("the disk of " + status.file.parent_path().string() +
                            " does not answer");
  }
  std::error_code ignored;
  if (std::filesystem::is_fifo(status.file, ignored)) {
    throw spdlog::spdlog_ex(status.file.string() + " is a pipe");
  }
  // The current file and the one before it share the size.
  to_open.sink = std::make_unique<spdlog::sinks::rotating_file_sink_st>(status.file.string(),
                                                                        status.size / 2, 1);
  to_open.sink->set_formatter(line_formatter(to_open.process_name, status.name));
  to_open.file = identity_of(status.file);
}

// Does without files that failed; they are opened again some time later. Told when it begins, and
// over when a line has been written: a file on a full disk can be opened.
void give_up_files(channel &failing, const char *reason) {
  failing.sink.reset();
  const std::lock_guard hold(failing.state);
  if (std::exchange(failing.status.reason, reason).empty()) {
    system_log("trace channel " + failing.status.name + " cannot be written: " + reason);
  }
}

// Looks now and then whether the files can be had, and whether they are still where they were:
// lines in a file that was taken away are lost.
void look_after_files(channel &tended) {
  const auto now = steady_clock::now();
  if (now < tended.look_at) return;
  tended.look_at = now + look_after;
  try {
    if (tended.sink != nullptr && identity_of(tended.status.file) == tended.file) return;
    tended.sink.reset();
    open_files(tended);
  } catch (const std::exception &failure) {
    give_up_files(tended, failure.what());
  }
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

std::chrono::system_clock::time_point moment(int64_t time_ns) {
  return std::chrono::system_clock::time_point(
      std::chrono::duration_cast<std::chrono::system_clock::duration>(
          std::chrono::nanoseconds(time_ns)));
}

// The rest holds `files`.
bool put(channel &to, std::chrono::system_clock::time_point time, spdlog::string_view_t line) {
  look_after_files(to);
  if (to.sink == nullptr) return false;
  try {
    to.sink->log({time, spdlog::source_loc{}, {}, spdlog::level::info, line});
    to.sink->flush();
    const std::lock_guard hold(to.state);
    to.status.reason.clear();
    return true;
  } catch (const std::exception &failure) {
    give_up_files(to, failure.what());
    return false;
  }
}

void write_line(channel &to, int64_t time_ns, const std::string &line) {
  const bool is_written = put(to, moment(time_ns), line);
  const std::lock_guard hold(to.state);
  ++(is_written ? to.status.lines : to.status.failures);
}

std::string missing_lines(uint64_t count) {
  return fmt::format("#0 [traces] {} lines are missing here: more came than could be written",
                     count);
}

void write_missing(channel &to, int64_t time_ns, uint64_t count) {
  if (count == 0) return;
  put(to, moment(time_ns), missing_lines(count));
  const std::lock_guard hold(to.state);
  to.status.failures += count;
}

// Whether to go on without a record that is not there yet: one that is being written will be.
bool is_given_up(channel &from) {
  const auto now = steady_clock::now();
  if (!from.waiting_since) from.waiting_since = now;
  return now - *from.waiting_since > patience;
}

// Writes the ring's next line to the files. False when there is none, or none that is whole.
bool write_next(channel &to) {
  using namespace lum_linux::rings;
  lum_linux::ring_reader reader = to.lines->reader();
  const uint64_t head = to.lines->head(), end = units_of(head);
  if (to.next == head) return false;
  const uint64_t oldest = reader.oldest(head);
  const uint64_t unit = std::max(units_of(to.next), oldest);
  lum_linux::ring_line line;
  if (!reader.read(unit, end, line)) {
    const bool is_overrun = unit != units_of(to.next);
    if (!is_overrun && !is_given_up(to)) return false;
    if (!reader.find(unit, end, line)) {
      line.time_ns =
          std::chrono::system_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
      line.count = count_of(head);
      line.next = head;
    }
  }
  to.waiting_since.reset();
  write_missing(to, line.time_ns, (line.count - count_of(to.next)) & count_mask);
  if (!line.text.empty()) write_line(to, line.time_ns, line.text);
  to.next = line.next;
  to.lines->set_written(to.next);
  return true;
}

bool is_behind(const channel &one) { return one.next != one.lines->head(); }

// Writes what there is. Returns whether something is left.
bool drain(channel &one) {
  const std::lock_guard hold(one.files);
  try {
    while (write_next(one)) {
    }
  } catch (const std::exception &) {  // no memory; the next round
  }
  return is_behind(one);
}

// Waits until what has been traced so far is in the files, or for a while.
void flush(channel &one) {
  const auto end = steady_clock::now() + patience + patience;
  for (;;) {
    std::unique_lock hold(one.files, patience);
    if (!hold) return;
    while (write_next(one)) {
    }
    if (!is_behind(one) || steady_clock::now() > end) return;
    hold.unlock();
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

void wake_writer() {
  std::atomic<uint32_t> &sleeping = facility().sleeping;
  if (sleeping.load(std::memory_order_seq_cst) == 0) return;
  if (sleeping.exchange(0, std::memory_order_seq_cst) != 0) sleeping.notify_one();
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

std::filesystem::path ring_file(const channel &of) {
  return of.status.file.parent_path() / (of.status.name + lum_linux::trace_ring_ending);
}

// Writes to the files what a process that ended without a word left in the channel's ring. Returns
// why the ring's file has to stay as it is, else nothing.
std::string recover(channel &into) {
  const auto file = ring_file(into);
  const int opened =
      ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW);
  if (opened < 0) return {};
  const bool is_ours = ::flock(opened, LOCK_EX | LOCK_NB) == 0;
  std::string problem;
  if (is_ours) {
    const lum_linux::trace_ring left = lum_linux::read_trace_ring(file);
    into.sink->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v"));
    for (const auto &record : left.records) {
      if (record.is_written || !problem.empty()) continue;
      if (!put(into, moment(record.time_ns), record.line)) problem = into.status.reason;
    }
    if (into.sink) into.sink->set_formatter(line_formatter(into.process_name, into.status.name));
  } else {
    problem = "another process traces there";
  }
  ::close(opened);
  return problem;
}

// Files first: without them the ring is in memory.
void open_ring(channel &to_open) {
  const trace_channel_status &status = to_open.status;
  const lum_linux::ring_names names = {status.name, to_open.process_name, status.digest,
                                       status.points};
  if (to_open.sink == nullptr) {
    to_open.lines = std::make_unique<lum_linux::ring>(status.size, names, "no files");
    return;
  }
  if (std::string problem = recover(to_open); !problem.empty()) {
    to_open.lines = std::make_unique<lum_linux::ring>(status.size, names, problem);
  } else {
    to_open.lines = std::make_unique<lum_linux::ring>(ring_file(to_open), status.size, names);
  }
  if (to_open.lines->problem().empty()) return;
  system_log("trace channel " + status.name +
             " keeps its latest lines in memory alone, where they end with the process: " +
             to_open.lines->problem());
}

// Only a line that can be written shows that lines can, and this one says what is missing. May
// throw.
void try_again(channel &failing) {
  std::string text;
  {
    const std::lock_guard hold(failing.state);
    text = fmt::format("[traces] {} lines were not written so far, the latest: {}",
                       failing.status.failures, failing.status.reason);
  }
  failing.look_at = {};
  put(failing, std::chrono::system_clock::now(), lum_linux::printable_line(0, text, false));
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
    auto opened = std::make_shared<channel>();
    opened->status.name = name;
    opened->status.file = directory->second / (std::string(name) + ".log");
    opened->status.size = std::max(size, smallest_size);
    opened->status.points = points;
    opened->status.digest = digest;
    opened->process_name = facility().process_name;
    try {
      open_files(*opened);
    } catch (const spdlog::spdlog_ex &failure) {
      give_up_files(*opened, failure.what());
    }
    opened->look_at = steady_clock::now() + look_after;
    open_ring(*opened);
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
      const std::unique_lock hold_files(one->files, patience);
      if (!hold_files) continue;
      one->process_name = name;
      one->lines->name_process(name);
      if (one->sink != nullptr) one->sink->set_formatter(line_formatter(name, one->status.name));
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
  try {
    flush(*closed);
  } catch (const std::exception &) {  // no memory for the last lines
  }
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
      if (facility().writer_of.load() != ::getpid()) drain(*one);
      {
        const std::lock_guard hold(one->state);
        if (!one->status.enabled || one->status.reason.empty()) continue;
      }
      const std::lock_guard hold(one->files);
      try_again(*one);
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
