#include "node/troubles.h"

#include <fmt/format.h>

#include "cerr.h"
#include "lum.h"
#include "lum_linux/leds.h"
#include "lum_linux/traces.h"
#include "node/driver.h"
#include "node/port_snapshot.h"

namespace lumd {
namespace {

using lum_linux::port_description;

// The library counts controllers in 8 bits, and polls nothing while that count is 0.
constexpr std::size_t uncounted_ports = 256 / LUM_SUB_PORTS;

void add_led(driver &node, const port_description &port, std::vector<trouble> &troubles) {
  const auto led = node.platform().leds().trouble(port.rsip);
  if (!led) return;
  troubles.push_back({&port, led_trouble_name,
                      fmt::format("the LED {} cannot be {}: {}", led->led.native(),
                                  led->wanted ? "set" : "read", cerr_strerror(led->code))});
}

void add_place(driver &node, const port_description &port, std::vector<trouble> &troubles) {
  const auto module = node.platform().modules().status(port.rsip);
  if (!module || module->place_code == 0) return;
  troubles.push_back({&port, place_trouble_name, why_unreachable(*module)});
}

}  // namespace

std::vector<trouble> troubles_of(driver &node) {
  std::vector<trouble> troubles;
  for (const port_description *port : node.node().ports()) {
    add_led(node, *port, troubles);
    add_place(node, *port, troubles);
  }
  return troubles;
}

std::vector<std::string> never_polled(const lum_linux::node_description &node) {
  std::vector<std::string> reasons;
  if (node.rack != 0) {
    reasons.push_back(
        fmt::format("'rack' is {}, and the library reaches modules in rack 0 only: no module of "
                    "this node will be read or set",
                    node.rack));
  }
  const std::size_t ports = node.ports().size();
  if (ports != 0 && ports % uncounted_ports == 0) {
    reasons.push_back(
        fmt::format("with {} ports the library's count of controllers, which has 8 bits, is 0: no "
                    "module is polled while all of them exist",
                    ports));
  }
  return reasons;
}

}  // namespace lumd
