// What around the ports is not as it should be: LEDs that cannot be set, buses and folders that are
// not there, modules that the library will never poll.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lum_linux/node_description.h"

namespace lumd {

class driver;

// Kinds of trouble, as requests and metrics call them.
inline constexpr std::string_view led_trouble_name = "led";
inline constexpr std::string_view place_trouble_name = "place";

struct trouble {
  const lum_linux::port_description *port = nullptr;
  std::string_view kind;
  std::string reason;  // what was tried and why it failed
};

// In the order of the ports.
std::vector<trouble> troubles_of(driver &node);

// Why modules of such a node will never be polled; nothing where they will.
std::vector<std::string> never_polled(const lum_linux::node_description &node);

}  // namespace lumd
