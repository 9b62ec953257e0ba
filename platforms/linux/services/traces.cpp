// Trace channels: each a pair of rotating files, written by spdlog. A line reads
//
//   2026-01-31T08:00:00.123456Z [process] lum_info #18 [lum_api][tid:4711]LUM_INFO:message
//
// with the channel, the trace point's number and the caller's own line behind the process's name.
// Every line is handed to the kernel at once, so that the last lines before a crash are there.
#include "lum_linux/traces.h"

#include <sys/stat.h>

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
#include <string>
#include <system_error>

#include "ctrace.h"
#include "lum_linux/disks.h"
#include "lum_linux/system.h"
#include "services/immortal.h"

namespace {

using lum_linux::system_log;
using lum_linux::trace_channel_status;
using std::chrono::steady_clock;

constexpr size_t longest_name = 64;
constexpr uint32_t smallest_size = 32768;  // bytes of a channel; smaller ones are enlarged
constexpr std::chrono::seconds look_after{5};
constexpr size_t longest_line = 2048;  // bytes before control characters are spelled out
constexpr std::string_view cut_mark = "...";

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

// One channel, for as long as it is open.
struct channel {
  trace_channel_status status;
  bool configurable = false;
  std::string process_name;
  std::unique_ptr<spdlog::sinks::rotating_file_sink_st> sink;  // null after a failure
  file_identity file;                                          // that the sink writes to
  steady_clock::time_point look_at;  // when to look for the file, or to open it again
};

// The place of a channel. A handle is the place's number, from 1, and how often the place had been
// used before: the handle of a channel that is closed means nothing.
struct channel_slot {
  std::mutex lock;
  uint32_t uses = 0;
  // The use in which the channel was turned off; 0 while it is on. Read without the lock: a line of
  // a channel that is off is dropped before anything is made of it.
  std::atomic<uint32_t> off_in = 0;
  std::unique_ptr<channel> open;
};

constexpr size_t channel_slots = 64;
constexpr unsigned uses_shift = 8;

// Lives until the process ends, for threads trace until then.
struct trace_facility {
  std::array<channel_slot, channel_slots> slots;
  std::mutex lock;  // guards all below; taken before a slot's
  std::map<std::string, std::filesystem::path> directories;
  std::string process_name;
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

// A channel with its slot locked; null when the handle means none.
class held_channel {
 public:
  explicit held_channel(ctrace_handle handle) {
    slot_ = slot_of(handle);
    if (slot_ == nullptr) return;
    hold_ = std::unique_lock(slot_->lock);
    if (slot_->open == nullptr || slot_->uses != handle >> uses_shift) slot_ = nullptr;
  }
  explicit operator bool() const { return slot_ != nullptr; }
  channel &operator*() const { return *slot_->open; }
  channel *operator->() const { return slot_->open.get(); }
  void close() {
    slot_->off_in = 0;
    slot_->open.reset();
  }

 private:
  channel_slot *slot_ = nullptr;
  std::unique_lock<std::mutex> hold_;
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

ctrace_handle put_into_slot(std::unique_ptr<channel> opened) {
  for (size_t i = 0; i < channel_slots; ++i) {
    channel_slot &slot = facility().slots[i];
    const std::lock_guard hold(slot.lock);
    if (slot.open != nullptr) continue;
    slot.open = std::move(opened);
    ++slot.uses;
    return static_cast<ctrace_handle>(slot.uses) << uses_shift | (i + 1);
  }
  return 0;
}

// Appends the text as one line of printable ASCII: line ends at its own end are dropped, all other
// bytes spelled out.
void append_printable(spdlog::memory_buf_t &line, std::string_view text) {
  while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  const auto is_printable = [](char c) { return c >= 0x20 && c < 0x7f; };
  for (auto at = text.begin(); at != text.end();) {
    const auto end = std::find_if_not(at, text.end(), is_printable);
    line.append(at, end);
    at = end;
    for (; at != text.end() && !is_printable(*at); ++at) {
      fmt::format_to(std::back_inserter(line), "\\x{:02x}", static_cast<unsigned char>(*at));
    }
  }
}

bool put(channel &to, spdlog::string_view_t line) {
  look_after_files(to);
  if (to.sink == nullptr) return false;
  try {
    to.sink->log({spdlog::string_view_t(), spdlog::level::info, line});
    to.sink->flush();
    to.status.reason.clear();
    return true;
  } catch (const std::exception &failure) {
    give_up_files(to, failure.what());
    return false;
  }
}

cerrno write_line(channel &to, spdlog::string_view_t line) {
  const bool is_written = put(to, line);
  ++(is_written ? to.status.lines : to.status.failures);
  return is_written ? 0 : EIO;
}

// Only a line that can be written shows that lines can, and this one says what is missing. May
// throw.
void try_again(channel &failing) {
  spdlog::memory_buf_t line;
  fmt::format_to(
      std::back_inserter(line),
      "#0 [traces] {} lines were not written so far, the latest: ", failing.status.failures);
  append_printable(line, failing.status.reason);
  failing.look_at = {};
  put(failing, {line.data(), line.size()});
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
    auto opened = std::make_unique<channel>();
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
  held_channel held(handle);
  if (!held) return EBADF;
  held->configurable = true;
  return 0;
}

void ctrace_set_process_name(const char *name) {
  if (name == nullptr) return;
  try {
    const std::lock_guard hold(facility().lock);
    facility().process_name = name;
    for (channel_slot &slot : facility().slots) {
      const std::lock_guard hold_slot(slot.lock);
      if (!slot.open) continue;
      slot.open->process_name = name;
      if (slot.open->sink == nullptr) continue;
      slot.open->sink->set_formatter(line_formatter(name, slot.open->status.name));
    }
  } catch (const std::exception &) {  // the old name stays
  }
}

cerrno ctrace_internal(ctrace_handle handle, uint32_t point, uint32_t, uint32_t, const char *,
                       const char *format, ...) {
  if (handle == 0) return 0;
  if (format == nullptr) return EINVAL;
  if (is_off(handle)) return 0;
  std::array<char, longest_line> text;
  va_list arguments;
  va_start(arguments, format);
  const int wanted = std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  if (wanted < 0) return EINVAL;
  const bool cut = static_cast<size_t>(wanted) >= text.size();
  const size_t length = cut ? text.size() - 1 : static_cast<size_t>(wanted);
  try {
    spdlog::memory_buf_t line;
    fmt::format_to(std::back_inserter(line), "#{} ", point);
    append_printable(line, {text.data(), length});
    if (cut) line.append(cut_mark.begin(), cut_mark.end());

    held_channel held(handle);
    if (!held) return EBADF;
    if (!held->status.enabled) return 0;
    return write_line(*held, {line.data(), line.size()});
  } catch (const std::exception &) {
    return ENOMEM;
  }
}

void ctrace_dump(ctrace_handle handle) {
  held_channel held(handle);
  if (!held || held->sink == nullptr) return;
  try {
    held->sink->flush();
  } catch (const std::exception &failure) {
    give_up_files(*held, failure.what());
  }
}

void ctrace_close(ctrace_handle handle) {
  held_channel held(handle);
  if (held) held.close();
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
    if (!slot.open->configurable) return EPERM;
    slot.open->status.enabled = on;
    slot.off_in = on ? 0 : slot.uses;
    return 0;
  }
  return ENOENT;
}

void traces_tend() {
  for (channel_slot &slot : facility().slots) {
    try {
      const std::lock_guard hold(slot.lock);
      if (!slot.open || !slot.open->status.enabled || slot.open->status.reason.empty()) continue;
      try_again(*slot.open);
    } catch (const std::exception &) {  // the next time
    }
  }
}

std::vector<trace_channel_status> traces_status() {
  std::vector<trace_channel_status> all;
  for (channel_slot &slot : facility().slots) {
    const std::lock_guard hold(slot.lock);
    if (slot.open) all.push_back(slot.open->status);
  }
  return all;
}

}  // namespace lum_linux
