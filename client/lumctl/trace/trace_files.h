// The files of the trace channels in a folder: <channel>.log, and <channel>.1.log with the lines
// before those.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "trace/trace_line.h"

namespace lumctl {

// One channel's lines, from the oldest on, and then whatever is written behind them, over
// rotations. A folder or a file that is not there yet has no lines.
class trace_channel {
 public:
  trace_channel(std::filesystem::path folder, std::string name);
  ~trace_channel();
  trace_channel(trace_channel &&other) noexcept;
  trace_channel(const trace_channel &) = delete;
  trace_channel &operator=(const trace_channel &) = delete;
  trace_channel &operator=(trace_channel &&) = delete;

  const std::string &name() const { return name_; }
  // What has come since the last time.
  std::vector<trace_line> read_on();
  // What its ring has and its files have not yet, which is asked before the files are read, and put
  // behind what they had: both ways a line stands there once.
  std::vector<std::string> latest() const;
  void add_latest(const std::vector<std::string> &latest, std::vector<trace_line> &lines) const;
  // What stands behind the last line end, for who does not wait for its rest.
  void end_line(std::vector<trace_line> &lines);
  // Why its files cannot be read, with the file's name; else empty.
  const std::string &problem() const { return problem_; }

 private:
  struct identity {
    dev_t device = 0;
    ino_t number = 0;
    bool operator==(const identity &) const = default;
  };

  std::filesystem::path file(bool rotated) const;
  static std::optional<identity> identity_of(const std::filesystem::path &file);
  int open_file(const std::filesystem::path &file);
  void follow_rotation(std::vector<trace_line> &lines);
  void drain(std::vector<trace_line> &lines);
  void take_lines(std::vector<trace_line> &lines);
  void close_file();

  std::filesystem::path folder_;
  std::string name_;
  int open_ = -1;
  identity opened_;
  off_t position_ = 0;
  std::string unfinished_;  // a line whose end has not been written yet
  trace_time last_;
  std::string problem_;
};

// The channels that have files in the folder, by name. Throws std::filesystem::filesystem_error for
// a folder that cannot be read.
std::vector<std::string> channels_in(const std::filesystem::path &folder);

// The lines of several channels in the order of their time, those of one channel in theirs.
std::vector<trace_line> in_order_of_time(std::vector<std::vector<trace_line>> channels);

}  // namespace lumctl
