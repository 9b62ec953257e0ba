// One open trace channel: its ring, and the text files that are written from it.
#pragma once

#include <sys/stat.h>

#include <spdlog/sinks/rotating_file_sink.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "lum_linux/traces.h"
#include "traces/ring.h"

namespace lum_linux {

// What is at a path; no file at all is the same everywhere.
struct file_identity {
  dev_t device = 0;
  ino_t number = 0;
  bool operator==(const file_identity &) const = default;
};

// One channel, for as long as it is open. `files` is held while the disk is written, and taken
// before `state`, which is held for moments.
struct channel {
  std::mutex state;
  trace_channel_status status;  // name, file, size, points and digest stay as they are
  bool configurable = false;

  std::mutex files;  // guards all below
  std::string process_name;
  std::unique_ptr<spdlog::sinks::rotating_file_sink_st> sink;  // null after a failure
  file_identity file;                                          // that the sink writes to
  std::chrono::steady_clock::time_point look_at;  // when to look for the file, or to open it again
  std::unique_ptr<ring> lines;
  uint64_t next = 0;  // the place that is written next
  std::optional<std::chrono::steady_clock::time_point>
      waiting_since;  // for a record that is not finished
};

// Opens its files, writes to them what a process that ended without a word left in its ring, and
// makes the ring anew. Files that cannot be had are tried again later. Waits for the disk; throws
// without memory.
void open_channel(channel &to_open);

// As above where they cannot be had just now: the ring is in memory, and nobody is waited for.
void open_without_files(channel &to_open, const char *reason);

// The rest holds `files`, and waits for the disk.

// Writes the ring's next line to the files. False when there is none, or none that is whole.
bool write_next(channel &to);

bool is_behind(const channel &one);

// Whether a place of the channel's ring comes before another.
bool is_before(uint64_t place, uint64_t other);

// A ring in place of one whose file somebody has cut short, with what it held gone. The old one is
// the caller's, who has to wait for those who use it.
std::unique_ptr<ring> renew_ring(channel &one);

// Tells the process's name to what is written from now on.
void name_process(channel &one, const std::string &name);

// Only a line that can be written shows that lines can, and this one says what is missing. May
// throw.
void try_again(channel &failing);

}  // namespace lum_linux
