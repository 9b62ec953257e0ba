// Keeps over a restart what has happened and what was measured: on a thread of its own, whatever is
// new goes into the file, events within a second of hasten(), readings and bins once a minute. A
// disk that hangs, is full or cannot be written holds up nobody else.
#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "lum_linux/periodic.h"
#include "records/event_log.h"
#include "records/reading_history.h"
#include "records/record_file.h"

namespace lumd {

class record_keeper {
 public:
  // Begins to read what an earlier process has kept. What it is made with, and itself, must live
  // until the process ends. May throw as lum_linux::periodic does.
  record_keeper(event_log &events, reading_history &history, std::filesystem::path file);

  // Waits until that has been read, or cannot be, but no longer than `bound`: what happens until
  // then may get another number later.
  void wait_until_read(std::chrono::milliseconds bound);

  // There are new events. Waits for nothing but a short lock.
  void hasten() { thread_->hasten(); }

  // Why what happens now is not being kept; empty while it is.
  std::string problem() const;

  // Keeps what is left, and ends. Once. Returns false when the disk did not take it within twice
  // `bound`: it is left behind. May throw std::system_error when there is no thread.
  bool stop(std::chrono::milliseconds bound);

 private:
  std::chrono::milliseconds look();
  void open();
  void write(bool is_last);
  record_change changes(bool is_last);
  void tell_of_damage(const std::string &put_aside);
  void tell_of_losses();
  void set_problem(const std::string &problem);

  event_log &events_;
  reading_history &history_;
  const std::filesystem::path path_;
  // The keeper's thread alone.
  std::unique_ptr<record_file> file_;
  std::chrono::steady_clock::time_point tried_{};
  std::chrono::steady_clock::time_point kept_history_{};
  bool took_back_ = false;  // what earlier processes have measured
  int64_t told_lost_ = 0;

  mutable std::mutex mutex_;  // guards the rest
  std::condition_variable changed_;
  bool read_ = false;
  std::string problem_;
  std::unique_ptr<lum_linux::periodic> thread_;
};

}  // namespace lumd
