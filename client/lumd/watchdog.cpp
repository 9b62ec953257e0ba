#include "watchdog.h"

#include <systemd/sd-daemon.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>
#include <thread>

#include "api/own_request.h"
#include "lum_linux/outlet.h"
#include "node/driver.h"
#include "node/health.h"
#include "node/log.h"

namespace lumd {
namespace {

constexpr std::chrono::seconds answer_bound(5);
constexpr unsigned looks_in_time = 4;  // three of them may come late

constexpr const char *ready = "READY=1";
constexpr std::chrono::milliseconds moment(200);
constexpr std::chrono::seconds long_while(60);

// False when the manager does not read now. One in a virtual machine's host, whose socket is none
// of this machine's, is left to the library, which waits.
bool tell_manager(const char *state, std::chrono::milliseconds bound) {
  const char *const place = std::getenv("NOTIFY_SOCKET");
  if (place == nullptr) return true;
  if (*place != '/' && *place != '@') return sd_notify(0, state) >= 0;
  return lum_linux::send_within(bound, place, state) != ETIMEDOUT;
}

// A manager that is not told takes the driver for one that does not come up, and ends it: it is
// told as soon as it reads, and nobody waits for that.
void tell_ready() {
  if (tell_manager(ready, moment)) return;
  try {
    std::thread([] {
      while (!tell_manager(ready, long_while)) continue;
    }).detach();
  } catch (const std::system_error &) {
    say("the service manager does not read that the driver is ready");
  }
}

}  // namespace

watchdog::watchdog(driver &node, const http_server &api) : node_(node), api_(api) {
  tell_ready();
  std::uint64_t microseconds = 0;
  if (sd_watchdog_enabled(0, &microseconds) <= 0) return;
  const auto period = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::microseconds(microseconds / looks_in_time));
  thread_ = std::make_unique<lum_linux::periodic>("lumd-watchdog", period, [this] { look(); });
}

void watchdog::look() {
  std::string standing = what_stands_still(node_);
  if (standing.empty() && !api_answers(api_, answer_bound)) standing = "the API does not answer";
  if (stops_) return;
  if (standing.empty()) {
    tell_manager("WATCHDOG=1", moment);
  } else if (!told_) {
    say("{}: the service manager is not told that the driver lives", standing);
  }
  told_ = !standing.empty();
}

void watchdog::stop() {
  stops_ = true;
  tell_manager("STOPPING=1", moment);
}

}  // namespace lumd
