// lum-trace: shows what the rings of trace channels hold, without a driver.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "lum_linux/trace_rings.h"
#include "wording/numbers.h"

namespace {

namespace fs = std::filesystem;
using lum_linux::trace_record;
using lum_linux::trace_ring;

constexpr int ok = 0;
constexpr int failed = 1;
constexpr int bad_usage = 2;

struct shown_line {
  int64_t time_ns;
  std::string text;
};

// A folder means all rings in it.
std::vector<fs::path> rings_at(const fs::path &place) {
  if (!fs::is_directory(place)) return {place};
  std::vector<fs::path> files;
  for (const fs::directory_entry &entry : fs::directory_iterator(place)) {
    if (entry.path().extension() == lum_linux::trace_ring_ending) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  if (files.empty()) throw std::runtime_error(place.string() + " has no trace ring");
  return files;
}

void add_lines(const trace_ring &ring, bool only_unwritten, std::vector<shown_line> &lines) {
  const auto missing = [&](uint64_t count) {
    return fmt::format("{}: {} missing here", ring.channel, lum_wording::counted(count, "line"));
  };
  int64_t last = 0;
  for (const trace_record &record : ring.records) {
    if (only_unwritten && record.is_written) continue;
    last = record.time_ns;
    if (record.missing > 0) lines.push_back({last, missing(record.missing)});
    lines.push_back({last, record.line});
  }
  if (ring.missing_at_end > 0) lines.push_back({last, missing(ring.missing_at_end)});
}

int show(const std::vector<std::string> &places, bool only_unwritten, std::size_t most) {
  std::vector<shown_line> lines;
  int status = ok;
  for (const std::string &place : places) {
    for (const fs::path &file : rings_at(place)) {
      const trace_ring ring = lum_linux::read_trace_ring(file);
      if (ring.problem.empty()) {
        add_lines(ring, only_unwritten, lines);
        continue;
      }
      fmt::print(stderr, "lum-trace: {}\n", ring.problem);
      status = failed;
    }
  }
  std::stable_sort(lines.begin(), lines.end(), [](const shown_line &one, const shown_line &other) {
    return one.time_ns < other.time_ns;
  });
  const std::size_t first = most == 0 ? 0 : lines.size() - std::min(most, lines.size());
  for (std::size_t i = first; i < lines.size(); ++i) fmt::print("{}\n", lines[i].text);
  if (std::fflush(stdout) == 0) return status;
  fmt::print(stderr, "lum-trace: cannot write the lines\n");
  return failed;
}

int run(int argc, char **argv) {
  CLI::App app("Shows the latest lines that trace channels keep in their rings, without a driver.");
  std::vector<std::string> places;
  std::size_t most = 0;
  bool only_unwritten = false;
  app.add_option("places", places, "Rings, or folders with rings")->required()->type_name("PLACE");
  app.add_option("-n,--lines", most, "Only so many lines, the latest")
      ->type_name("COUNT")
      ->check(CLI::PositiveNumber);
  app.add_flag("--unwritten", only_unwritten, "Only lines that are not in the text files yet");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? ok : bad_usage;
  }
  return show(places, only_unwritten, most);
}

}  // namespace

int main(int argc, char **argv) try {
  return run(argc, argv);
} catch (const std::exception &error) {
  std::fprintf(stderr, "lum-trace: %s\n", error.what());
  return failed;
}
