#include "trace/trace_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <set>
#include <utility>

#include "lum_linux/trace_rings.h"

namespace lumctl {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view rotated_ending = ".1.log";
constexpr std::string_view ending = ".log";
constexpr std::string_view ring_ending = lum_linux::trace_ring_ending;

// Longer ones are no lines of a trace.
constexpr std::size_t longest_line = std::size_t{1024} * 1024;

}  // namespace

trace_channel::trace_channel(fs::path folder, std::string name)
    : folder_(std::move(folder)), name_(std::move(name)) {}

trace_channel::~trace_channel() { close_file(); }

trace_channel::trace_channel(trace_channel &&other) noexcept
    : folder_(std::move(other.folder_)),
      name_(std::move(other.name_)),
      open_(std::exchange(other.open_, -1)),
      opened_(other.opened_),
      position_(other.position_),
      unfinished_(std::move(other.unfinished_)),
      last_(other.last_),
      problem_(std::move(other.problem_)) {}

std::vector<trace_line> trace_channel::read_on() {
  std::vector<trace_line> lines;
  if (open_ >= 0) drain(lines);
  const auto now = identity_of(file(false));
  if (open_ >= 0 && (!now || *now == opened_)) return lines;
  follow_rotation(lines);
  return lines;
}

// The file that was read has become the older one, or has gone: what was written into it up to then
// comes first, then what was rotated away before anybody looked, then the file that is there now.
void trace_channel::follow_rotation(std::vector<trace_line> &lines) {
  const bool was_open = open_ >= 0;
  const identity before = opened_;
  if (was_open) drain(lines);
  end_line(lines);
  close_file();
  const int newest = open_file(file(false));
  const auto newest_is = opened_;
  const auto older = identity_of(file(true));
  if (older && !(was_open && *older == before) && !(newest >= 0 && *older == newest_is)) {
    open_ = open_file(file(true));
    if (open_ >= 0) drain(lines);
    end_line(lines);
    close_file();
  }
  open_ = newest;
  opened_ = newest_is;
  position_ = 0;
  if (open_ >= 0) drain(lines);
}

fs::path trace_channel::file(bool rotated) const {
  return folder_ / (name_ + std::string(rotated ? rotated_ending : ending));
}

std::optional<trace_channel::identity> trace_channel::identity_of(const fs::path &file) {
  struct stat found = {};
  if (::stat(file.c_str(), &found) != 0) return std::nullopt;
  return identity{found.st_dev, found.st_ino};
}

// Whatever is no ordinary file could hold up who reads it.
int trace_channel::open_file(const fs::path &file) {
  opened_ = {};
  position_ = 0;
  const int opened = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (opened < 0) {
    if (errno != ENOENT) problem_ = file.string() + ": " + std::strerror(errno);
    return -1;
  }
  struct stat found = {};
  if (::fstat(opened, &found) != 0 || !S_ISREG(found.st_mode)) {
    problem_ = file.string() + " is no ordinary file";
    ::close(opened);
    return -1;
  }
  opened_ = {found.st_dev, found.st_ino};
  return opened;
}

// Reads what is there; a file that has become shorter from its start.
void trace_channel::drain(std::vector<trace_line> &lines) {
  struct stat found = {};
  if (::fstat(open_, &found) == 0 && found.st_size < position_) position_ = 0;
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count = ::pread(open_, buffer.data(), buffer.size(), position_);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) problem_ = file(false).string() + ": " + std::strerror(errno);
    if (count <= 0) return;
    position_ += count;
    unfinished_.append(buffer.data(), static_cast<std::size_t>(count));
    take_lines(lines);
  }
}

void trace_channel::take_lines(std::vector<trace_line> &lines) {
  std::size_t begin = 0;
  for (std::size_t end; (end = unfinished_.find('\n', begin)) != std::string::npos;
       begin = end + 1) {
    lines.push_back(
        read_trace_line(std::string_view(unfinished_).substr(begin, end - begin), name_, last_));
    last_ = lines.back().time;
  }
  unfinished_.erase(0, begin);
  if (unfinished_.size() > longest_line) end_line(lines);
}

void trace_channel::end_line(std::vector<trace_line> &lines) {
  if (unfinished_.empty()) return;
  lines.push_back(read_trace_line(unfinished_, name_, last_));
  last_ = lines.back().time;
  unfinished_.clear();
}

std::vector<std::string> trace_channel::latest() const {
  std::vector<std::string> lines;
  const auto ring = lum_linux::read_trace_ring(folder_ / (name_ + lum_linux::trace_ring_ending));
  for (const lum_linux::trace_record &record : ring.records) {
    if (!record.is_written) lines.push_back(record.line);
  }
  return lines;
}

void trace_channel::add_latest(const std::vector<std::string> &latest,
                               std::vector<trace_line> &lines) const {
  std::set<std::string_view> written;
  for (const trace_line &line : lines) {
    if (!latest.empty() && line.whole >= latest.front()) written.insert(line.whole);
  }
  std::vector<trace_line> added;
  for (const std::string &line : latest) {
    if (!written.contains(line)) added.push_back(read_trace_line(line, name_, last_));
  }
  std::ranges::move(added, std::back_inserter(lines));
}

void trace_channel::close_file() {
  if (open_ >= 0) ::close(open_);
  open_ = -1;
}

std::vector<std::string> channels_in(const fs::path &folder) {
  std::set<std::string> names;
  for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
    const std::string file = entry.path().filename().string();
    for (const std::string_view tail : {rotated_ending, ending, ring_ending}) {
      if (!file.ends_with(tail) || file.size() == tail.size()) continue;
      names.insert(file.substr(0, file.size() - tail.size()));
      break;
    }
  }
  return {names.begin(), names.end()};
}

std::vector<trace_line> in_order_of_time(std::vector<std::vector<trace_line>> channels) {
  std::vector<trace_line> all;
  std::vector<std::size_t> next(channels.size());
  for (;;) {
    const std::size_t none = channels.size();
    std::size_t first = none;
    for (std::size_t i = 0; i < channels.size(); ++i) {
      if (next[i] == channels[i].size()) continue;
      if (first == none || channels[i][next[i]].time < channels[first][next[first]].time) first = i;
    }
    if (first == none) return all;
    all.push_back(std::move(channels[first][next[first]++]));
  }
}

}  // namespace lumctl
