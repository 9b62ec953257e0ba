#include "node/hold_up.h"

#include <fmt/format.h>

#include "lum_linux/checkpoints.h"
#include "node/driver.h"
#include "node/port_snapshot.h"

namespace lumd {
namespace {

std::string hung_modules(driver &node, const std::function<bool(uint32_t)> &concerns) {
  std::string names;
  for (const auto *port : node.node().ports()) {
    if (!concerns(port->rsip)) continue;
    const auto module = node.platform().modules().status(port->rsip);
    if (!module || module->busy_for <= hung_after) continue;
    names += fmt::format("{}{} ({:.0f} s)", names.empty() ? "" : ", ", port->name,
                         std::chrono::duration<double>(module->busy_for).count());
  }
  return names;
}

// The line of a cage whose file does not take what it is set to.
std::string hung_line(driver &node, const std::function<bool(uint32_t)> &concerns) {
  for (const auto *port : node.node().ports()) {
    if (!concerns(port->rsip)) continue;
    const auto module = node.platform().modules().status(port->rsip);
    if (!module || module->line_being_set.empty() || module->line_set_for <= hung_after) continue;
    return fmt::format("it waits for {}, which has not taken what it is set to for {:.0f} s",
                       module->line_being_set,
                       std::chrono::duration<double>(module->line_set_for).count());
  }
  return {};
}

}  // namespace

std::string what_holds_up(driver &node, const std::function<bool(uint32_t)> &concerns) {
  const std::string names = hung_modules(node, concerns);
  if (!names.empty()) {
    return "it waits for a module whose transfer has not ended: that of port " + names;
  }
  if (std::string line = hung_line(node, concerns); !line.empty()) return line;
  return fmt::format(
      "no module hangs that it may want; it waits for the disk of {}, or behind "
      "another action",
      lum_linux::checkpoints_status().file.native());
}

}  // namespace lumd
