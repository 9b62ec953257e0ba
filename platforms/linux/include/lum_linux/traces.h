// The trace channels behind ctrace.h: where their files are, and how they fare.
//
// What holds for every call stands in lum_linux/services.h.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "cerr.h"

namespace lum_linux {

// Says where the channels opened with `key` keep their files, <directory>/<channel>.log and one
// older file beside it. The folder is created with the first channel. A channel whose files cannot
// be had is open all the same: every few seconds it is tried again, and also whether the file is
// still where it was, until when lines are lost and counted. Returns 0 or 22.
cerrno traces_set_directory(const std::string &key, const std::filesystem::path &directory);

// Turns a channel off and on again, by its name. Returns 0, 2 for a channel that is not open, or 1
// when its run-time configuration has not been enabled.
cerrno traces_enable(std::string_view channel, bool on);

struct trace_channel_status {
  std::string name;
  std::filesystem::path file;
  uint32_t size = 0;    // bytes that both files together stay within
  uint32_t points = 0;  // of the caller's catalogue
  std::string digest;   // of the caller's catalogue
  bool enabled = true;
  uint64_t lines = 0;
  uint64_t failures = 0;  // lines that could not be written
  std::string reason;     // why the latest line could not be written; empty when it was
};
std::vector<trace_channel_status> traces_status();

// Writes to the channels' files what has been traced so far, as ctrace_dump() does for one: lines
// are put into a ring and written by a thread of the platform's. Waits for the disk, for a second
// and a half, and not again for ten seconds after that was in vain.
void traces_flush();

// Tries the channels again that could not be written, each with a line that says how many were
// lost: to be called every few seconds, for nothing may be traced for long. Waits for the disk.
void traces_tend();

}  // namespace lum_linux
