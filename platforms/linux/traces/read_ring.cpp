#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "lum_linux/trace_rings.h"
#include "traces/line_format.h"
#include "traces/ring_reader.h"

namespace lum_linux {
namespace {

using namespace rings;

constexpr int64_t ns_per_us = 1000;
constexpr int64_t us_per_s = 1000000;

// As the text files have it.
std::string utc_time(int64_t time_ns) {
  const int64_t micros = time_ns / ns_per_us;
  const auto seconds = static_cast<time_t>(micros / us_per_s);
  std::tm parts = {};
  std::array<char, 32> day{};
  if (time_ns < 0 || ::gmtime_r(&seconds, &parts) == nullptr ||
      std::strftime(day.data(), day.size(), "%Y-%m-%dT%H:%M:%S", &parts) == 0) {
    return "1970-01-01T00:00:00.000000Z";
  }
  std::array<char, 16> fraction{};
  std::snprintf(fraction.data(), fraction.size(), ".%06dZ", static_cast<int>(micros % us_per_s));
  return std::string(day.data()) + fraction.data();
}

// All words of the file; empty with the reason when they cannot be a ring's.
std::vector<uint64_t> words_of(const std::filesystem::path &file, std::string &problem) {
  constexpr size_t most = first_unit + largest_units * unit_words;
  const int opened = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  struct stat found = {};
  if (opened < 0 || ::fstat(opened, &found) != 0) {
    problem = file.string() + ": " + std::strerror(errno);
    if (opened >= 0) ::close(opened);
    return {};
  }
  std::vector<uint64_t> words;
  if (!S_ISREG(found.st_mode)) {
    problem = file.string() + " is no ordinary file";
  } else {
    words.resize(std::min(most, static_cast<size_t>(found.st_size) / word_bytes));
    auto *const bytes = reinterpret_cast<char *>(words.data());
    size_t done = 0;
    while (done < words.size() * word_bytes) {
      const ssize_t count =
          ::pread(opened, bytes + done, words.size() * word_bytes - done, static_cast<off_t>(done));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) problem = file.string() + ": " + std::strerror(errno);
      if (count <= 0) break;
      done += static_cast<size_t>(count);
    }
    words.resize(done / word_bytes);
  }
  ::close(opened);
  return words;
}

bool is_ring(std::vector<uint64_t> &words) {
  if (words.size() < first_unit || words[magic_at] != magic) return false;
  const uint64_t units = words[units_at];
  return std::has_single_bit(units) && units >= smallest_units && units <= largest_units &&
         words.size() >= first_unit + units * unit_words;
}

}  // namespace

trace_ring read_trace_ring(const std::filesystem::path &file) {
  trace_ring all;
  std::vector<uint64_t> words = words_of(file, all.problem);
  if (!all.problem.empty()) return all;
  if (!is_ring(words)) {
    all.problem = file.string() + " is no trace ring";
    return all;
  }
  ring_reader reader(words, words[units_at]);
  all.channel = printable_text(reader.name(channel_at, channel_words));
  all.process = printable_text(reader.name(process_at, process_words));
  all.digest = printable_text(reader.name(digest_at, digest_words));
  all.points = static_cast<uint32_t>(words[points_at]);
  const uint64_t head = reader.head(), end = units_of(head);
  const uint64_t written = units_of(reader.written());
  uint64_t at = reader.oldest(head), count = at == 0 ? 0 : count_mask + 1;
  ring_line line;
  while (reader.find(at, end, line)) {
    trace_record record;
    record.time_ns = line.time_ns;
    record.thread = line.thread;
    record.point = line.point;
    if (count <= count_mask) record.missing = (line.count - count) & count_mask;
    at = units_of(line.next);
    count = count_of(line.next);
    record.is_written = at <= written;
    record.end = line.next;
    record.line =
        utc_time(line.time_ns) + " [" + all.process + "] " + all.channel + " " + line.text;
    all.records.push_back(std::move(record));
  }
  if (count <= count_mask) all.missing_at_end = (count_of(head) - count) & count_mask;
  return all;
}

}  // namespace lum_linux
