#include "node/module_actions.h"

#include <fmt/format.h>

#include <algorithm>

#include "node/driver.h"

namespace lumd {
namespace {

using lum_linux::port_description;

constexpr cerrno nothing_there = 2;

// What has become of the module, or why not.
outcome<module_report> report(driver &node, const port_description &port, cerrno rc,
                              const std::string &why = {}) {
  if (!CERR_IS_OK(rc)) {
    std::string reason = why.empty() ? cerr_strerror(rc) : why;
    if (rc == lum_linux::module_busy) reason = "a transfer with its module does not end";
    std::replace(reason.begin(), reason.end(), '\n', ';');
    return refusal{refusal_kind::conflict, fmt::format("port {}: {}", port.name, reason)};
  }
  module_report report;
  report.rc = rc;
  report.status = node.platform().modules().status(port.rsip);
  return report;
}

}  // namespace

outcome<module_report> insert_module(driver &node, const port_description &port) {
  auto &modules = node.platform().modules();
  const cerrno rc = modules.insert(port.rsip);
  std::string why;
  if (rc == nothing_there) {
    why = "there is no module at " + modules.status(port.rsip)->location;
  }
  return report(node, port, rc, why);
}

outcome<module_report> insert_module(driver &node, const port_description &port,
                                     const std::filesystem::path &description) {
  std::string error;
  const cerrno rc = node.platform().modules().insert(port.rsip, description, error);
  return report(node, port, rc, error);
}

outcome<module_report> remove_module(driver &node, const port_description &port) {
  return report(node, port, node.platform().modules().remove(port.rsip));
}

outcome<module_report> set_module_faults(driver &node, const port_description &port,
                                         const lum_linux::fault_script &script) {
  return report(node, port, node.platform().modules().set_faults(port.rsip, script));
}

outcome<module_report> release_module(driver &node, const port_description &port) {
  return report(node, port, node.platform().modules().release(port.rsip));
}

outcome<module_report> set_module_line(driver &node, const port_description &port,
                                       lum_linux::module_line line, bool on) {
  const bool is_reset = line == lum_linux::module_line::reset;
  const auto &described = is_reset ? port.module.reset : port.module.low_power;
  const char *key = is_reset ? "reset" : "low_power";
  const cerrno rc = node.platform().modules().set_line(port.rsip, line, on);
  std::string why;
  if (rc == lum_linux::module_unsupported) {
    why = fmt::format("its cage has no such line: its description has no '{}'", key);
  } else if (rc == lum_linux::module_failing) {
    why = fmt::format("{} does not hold what was written to it", described.file.native());
  } else if (!CERR_IS_OK(rc)) {
    why = fmt::format("{} cannot be set: {}", described.file.native(), cerr_strerror(rc));
  }
  return report(node, port, rc, why);
}

outcome<module_report> poke_module(driver &node, const port_description &port, uint32_t page,
                                   uint32_t offset, uint8_t value) {
  return report(node, port, node.platform().modules().poke(port.rsip, page, offset, value));
}

}  // namespace lumd
