// What the area offers to the rest of the library beyond its exported calls.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/shared.h"
#include "lum.h"

namespace lum {

// The directions of lum_i2c_read_write.
inline constexpr std::uint32_t module_write = 0;
inline constexpr std::uint32_t module_read = 1;

// Creates the controllers of `count` ports, of which only those in `ports` are known by number; the
// others stay empty elements of the batch.
cerrno create_controllers(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                          std::uint32_t count, std::span<const std::uint32_t> ports);

inline constexpr std::array<std::size_t, LUM_MODULE_FLAGS> module_flag_places =
    LUM_MODULE_FLAG_PLACES;

// The flags that the last good poll found at a byte of the lower page.
template <std::size_t Place>
std::uint8_t module_flags_at(const lum_port_data &port) {
  constexpr std::size_t index =
      std::ranges::find(module_flag_places, Place) - module_flag_places.begin();
  static_assert(index < LUM_MODULE_FLAGS, "no flags are kept of that byte");
  return shared_load(port.module_flags[index]);
}

// Power of a reading, in tenths of a microwatt. A power that does not fit gives the largest number.
std::uint32_t power_of(std::uint16_t reading);

// Alarm bits of bytes 13 and 64 for a sub-port.
std::uint64_t module_alarms(const lum_port_data &port, std::uint32_t sub_port);

}  // namespace lum
