// Tells the service manager that the driver is up, that it lives, and that it stops.
#pragma once

#include <atomic>
#include <memory>

#include "api/http_server.h"
#include "lum_linux/periodic.h"

namespace lumd {

class driver;

class watchdog {
 public:
  // Says that the driver is ready. Where the service manager wants to hear that it lives, feeds it
  // for as long as `api` answers and nothing in the driver stands still; says once why it does
  // not. Both must live until the process ends.
  watchdog(driver &node, const http_server &api);
  watchdog(const watchdog &) = delete;
  watchdog &operator=(const watchdog &) = delete;

  // Says that the driver stops; what it does not do from here on is not told.
  void stop();

 private:
  void look();

  driver &node_;
  const http_server &api_;
  bool told_ = false;
  std::atomic<bool> stops_{false};
  std::unique_ptr<lum_linux::periodic> thread_;
};

}  // namespace lumd
