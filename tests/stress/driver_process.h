// A driver in a process of its own.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>

#include "crash_records.h"

namespace stress {

enum class driver_task { storm, report };

class driver_process {
 public:
  // `max_file_size` limits what the driver may write to any one file; 0: no limit.
  driver_process(const std::filesystem::path &folder, uint64_t seed, driver_task task,
                 uint64_t max_file_size = 0);
  ~driver_process();
  driver_process(const driver_process &) = delete;
  driver_process &operator=(const driver_process &) = delete;

  // The next record, or nothing when none has come within `bound` or the driver has ended.
  std::optional<crash_record> next(std::chrono::microseconds bound);
  bool ended() const { return ended_; }

  void go();
  void limit_files(uint64_t max_file_size);
  // Kills the driver and waits for its end; its last records can still be read. Returns false when
  // it had ended by itself.
  bool kill_now();
  // Waits for the end; returns the exit status, -1 when a signal ended it.
  int wait();

 private:
  pid_t pid_ = -1;
  int records_ = -1;
  int go_ = -1;
  bool ended_ = false;  // no more records
};

}  // namespace stress
