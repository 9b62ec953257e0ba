// Tells the service manager that the driver is up, that it lives, and that it stops.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "lum_linux/periodic.h"

namespace lumd {

class driver;

class watchdog {
 public:
  // Says that the driver is ready. Where the service manager wants to hear that it lives, feeds it
  // for as long as the API answers at `socket` and nothing in the driver stands still; says once
  // why it does not. The driver must live until the process ends.
  watchdog(driver &node, std::filesystem::path socket);
  watchdog(const watchdog &) = delete;
  watchdog &operator=(const watchdog &) = delete;

  // Says that the driver stops.
  void stop();

 private:
  void look();

  driver &node_;
  const std::filesystem::path socket_;
  bool told_ = false;
  std::unique_ptr<lum_linux::periodic> thread_;
};

}  // namespace lumd
