#include "watchdog.h"

#include <systemd/sd-daemon.h>

#include <chrono>

#include "api/own_request.h"
#include "node/driver.h"
#include "node/health.h"
#include "node/log.h"

namespace lumd {
namespace {

constexpr std::chrono::seconds answer_bound(5);
constexpr unsigned looks_in_time = 4;  // three of them may come late

}  // namespace

watchdog::watchdog(driver &node, const http_server &api) : node_(node), api_(api) {
  sd_notify(0, "READY=1");
  std::uint64_t microseconds = 0;
  if (sd_watchdog_enabled(0, &microseconds) <= 0) return;
  const auto period = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::microseconds(microseconds / looks_in_time));
  thread_ = std::make_unique<lum_linux::periodic>("lumd-watchdog", period, [this] { look(); });
}

void watchdog::look() {
  std::string standing = what_stands_still(node_);
  if (standing.empty() && !api_answers(api_, answer_bound)) standing = "the API does not answer";
  if (standing.empty()) {
    sd_notify(0, "WATCHDOG=1");
  } else if (!told_) {
    say("{}: the service manager is not told that the driver lives", standing);
  }
  told_ = !standing.empty();
}

void watchdog::stop() { sd_notify(0, "STOPPING=1"); }

}  // namespace lumd
