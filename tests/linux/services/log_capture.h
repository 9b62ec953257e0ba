// Catches what goes to the system log while it lives.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "lum_linux/services.h"

class log_capture {
 public:
  log_capture() {
    lum_linux::system_log_set_sink([this](std::string_view line) {
      const std::lock_guard hold(lock_);
      lines_.emplace_back(line);
    });
  }
  ~log_capture() { lum_linux::system_log_set_sink({}); }
  std::vector<std::string> lines() const {
    const std::lock_guard hold(lock_);
    return lines_;
  }

 private:
  mutable std::mutex lock_;
  std::vector<std::string> lines_;
};
