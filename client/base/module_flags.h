// What a module's flag bytes say.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace lum_client {

// Which bytes of the lower page the library keeps, in its order.
std::span<const unsigned> flag_places();

// The raised flags by name, in the order of the library's flag bytes: an alarm as docs/alarms.md
// names it, and a bit that nothing is known of after its place.
std::vector<std::string> raised_flags(std::span<const uint8_t> flags);

}  // namespace lum_client
