#include "node/health.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "node/driver.h"
#include "node/port_data.h"
#include "node/port_snapshot.h"

namespace lumd {
namespace {

using std::chrono::seconds;

constexpr seconds round_limit(60);    // of a thread, however many modules hang
constexpr seconds polling_limit(30);  // without a visit to any module

bool a_module_hangs(driver &node) {
  const auto ports = node.node().ports();
  return std::any_of(ports.begin(), ports.end(), [&](const auto *port) {
    const auto module = node.platform().modules().status(port->rsip);
    return module && module->busy_for > hung_after;
  });
}

std::string polling_that_stands(driver &node) {
  const polling_report polling = node.polling().report();
  if (polling.paused || node.count().halts_polling() || polling.quiet_for < polling_limit)
    return {};
  if (!has_work_for_polling() || a_module_hangs(node)) return {};
  return fmt::format("no module has been polled for {} s",
                     std::chrono::duration_cast<seconds>(polling.quiet_for).count());
}

}  // namespace

std::string what_stands_still(driver &node) {
  for (const auto &[name, age] : node.rounds()) {
    if (age < round_limit) continue;
    return fmt::format("the thread {} has not come round for {} s", name,
                       std::chrono::duration_cast<seconds>(age).count());
  }
  return polling_that_stands(node);
}

}  // namespace lumd
