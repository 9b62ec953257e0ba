// The rings that trace channels keep their lines in, read from their files: of a driver that runs,
// that has ended or that was killed. No driver is asked, and none is disturbed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace lum_linux {

inline constexpr const char *trace_ring_ending = ".ring";  // behind the channel's name

struct trace_record {
  int64_t time_ns = 0;      // of the call, since 1970 in UTC
  uint32_t thread = 0;      // the kernel's id of the caller's thread
  uint32_t point = 0;       // of the caller's catalogue
  uint64_t missing = 0;     // lines right before it that the ring no longer has whole
  bool is_written = false;  // the text file has had its turn with it
  uint64_t end = 0;         // the place in the ring behind it
  std::string line;         // as it stands in the text file, printable, without its end
};

struct trace_ring {
  std::string channel;
  std::string process;
  std::string digest;  // of the caller's catalogue
  uint32_t points = 0;
  std::vector<trace_record> records;  // from the oldest on
  uint64_t missing_at_end = 0;        // lines behind the last that were begun and not finished
  std::string problem;                // why the file cannot be read as a ring, else empty
};

// Reads a ring's file, whatever it holds: what is damaged is left out. Waits for the disk. Throws
// nothing but std::bad_alloc.
trace_ring read_trace_ring(const std::filesystem::path &file);

}  // namespace lum_linux
