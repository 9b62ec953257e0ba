#include "traces/channel.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <spdlog/pattern_formatter.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "lum_linux/disks.h"
#include "lum_linux/system.h"
#include "lum_linux/trace_rings.h"

namespace lum_linux {
namespace {

using namespace rings;
using std::chrono::steady_clock;

constexpr std::chrono::seconds look_after{5};
constexpr std::chrono::milliseconds patience{1000};  // with a record that is not finished

file_identity identity_of(const std::filesystem::path &file) {
  struct stat found = {};
  if (::stat(file.c_str(), &found) != 0) return {};
  return {found.st_dev, found.st_ino};
}

std::unique_ptr<spdlog::formatter> line_formatter(const std::string &process_name,
                                                  const std::string &channel_name) {
  std::string fixed;
  for (const char c : fmt::format("[{}] {}", process_name, channel_name)) {
    fixed.append(c == '%' ? 2 : 1, c);
  }
  return std::make_unique<spdlog::pattern_formatter>("%Y-%m-%dT%H:%M:%S.%fZ " + fixed + " %v",
                                                     spdlog::pattern_time_type::utc);
}

// Opens the channel's files. May throw.
void open_files(channel &to_open) {
  trace_channel_status &status = to_open.status;
  // Either would hold up whoever traces, for long or until somebody reads.
  if (folder_is_waited_for(status.file.parent_path())) {
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

std::filesystem::path ring_file(const channel &of) {
  return of.status.file.parent_path() / (of.status.name + trace_ring_ending);
}

// What an earlier process left in it is lost. An empty file has never been one.
void tell_of_unreadable(const std::filesystem::path &file, const trace_ring &left) {
  std::error_code code;
  if (left.problem.empty() || std::filesystem::file_size(file, code) == 0 || code) return;
  system_log("the latest lines of an earlier process are lost: " + left.problem);
}

// The line of a gap, as it would stand in the file.
std::string missing_in(const trace_ring &of, const trace_record &behind) {
  const std::string time = behind.line.substr(0, behind.line.find(' '));
  return fmt::format("{} [{}] {} {}", time, of.process, of.channel, missing_lines(behind.missing));
}

// Read alone where it cannot be written, or -1.
int open_left_ring(const std::filesystem::path &file) {
  constexpr int how = O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW;
  const int opened = ::open(file.c_str(), O_RDWR | how);
  return opened >= 0 ? opened : ::open(file.c_str(), O_RDONLY | how);
}

// In the ring's file: whoever opens the channel after this process goes on behind it. A ring that
// cannot be written has its lines written again then.
void mark_written(int ring_file, uint64_t place) {
  const ssize_t ignored =
      ::pwrite(ring_file, &place, sizeof place, static_cast<off_t>(written_at * word_bytes));
  static_cast<void>(ignored);
}

// Returns why the rest has to stay in the ring, else nothing.
std::string write_left(channel &into, const trace_ring &left, int ring_file) {
  for (const auto &record : left.records) {
    if (record.is_written) continue;
    if (record.missing > 0) put(into, moment(record.time_ns), missing_in(left, record));
    if (!put(into, moment(record.time_ns), record.line)) return into.status.reason;
    mark_written(ring_file, record.end);
  }
  return {};
}

// Writes to the files what a process that ended without a word left in the channel's ring. Returns
// why the ring's file has to stay as it is, else nothing.
std::string recover(channel &into) {
  const auto file = ring_file(into);
  const int opened = open_left_ring(file);
  if (opened < 0) return {};
  const bool is_ours = ::flock(opened, LOCK_EX | LOCK_NB) == 0;
  std::string problem;
  if (is_ours) {
    const trace_ring left = read_trace_ring(file);
    tell_of_unreadable(file, left);
    into.sink->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v"));
    problem = write_left(into, left, opened);
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
  const ring_names names = {status.name, to_open.process_name, status.digest, status.points};
  if (to_open.sink == nullptr) {
    to_open.lines = std::make_unique<ring>(status.size, names, "no files");
    return;
  }
  if (std::string problem = recover(to_open); !problem.empty()) {
    to_open.lines = std::make_unique<ring>(status.size, names, problem);
  } else {
    to_open.lines = std::make_unique<ring>(ring_file(to_open), status.size, names);
  }
  if (to_open.lines->problem().empty()) return;
  system_log("trace channel " + status.name +
             " keeps its latest lines in memory alone, where they end with the process: " +
             to_open.lines->problem());
}

}  // namespace

void open_channel(channel &to_open) {
  try {
    open_files(to_open);
  } catch (const spdlog::spdlog_ex &failure) {
    give_up_files(to_open, failure.what());
  }
  to_open.look_at = steady_clock::now() + look_after;
  open_ring(to_open);
}

void open_without_files(channel &to_open, const char *reason) {
  give_up_files(to_open, reason);
  to_open.look_at = steady_clock::now() + look_after;
  open_ring(to_open);
}

bool write_next(channel &to) {
  ring_reader reader = to.lines->reader();
  const uint64_t head = to.lines->head(), end = units_of(head);
  if (to.next == head) return false;
  const uint64_t oldest = reader.oldest(head);
  const uint64_t unit = std::max(units_of(to.next), oldest);
  ring_line line;
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

bool is_before(uint64_t place, uint64_t other) {
  const uint64_t between = (count_of(other) - count_of(place)) & count_mask;
  return between != 0 && between <= count_mask / 2;
}

std::unique_ptr<ring> renew_ring(channel &one) {
  one.lines->give_up_file();
  const trace_channel_status &status = one.status;
  auto fresh = std::make_unique<ring>(
      ring_file(one), status.size,
      ring_names{status.name, one.process_name, status.digest, status.points});
  put(one, std::chrono::system_clock::now(),
      "#0 [traces] lines may be missing here: somebody has cut the ring's file short");
  one.next = 0;
  one.waiting_since.reset();
  return std::exchange(one.lines, std::move(fresh));
}

void name_process(channel &one, const std::string &name) {
  one.process_name = name;
  one.lines->name_process(name);
  if (one.sink != nullptr) one.sink->set_formatter(line_formatter(name, one.status.name));
}

void try_again(channel &failing) {
  std::string text;
  {
    const std::lock_guard hold(failing.state);
    text = fmt::format("[traces] {} lines were not written so far, the latest: {}",
                       failing.status.failures, failing.status.reason);
  }
  failing.look_at = {};
  put(failing, std::chrono::system_clock::now(), printable_line(0, text, false));
}

}  // namespace lum_linux
