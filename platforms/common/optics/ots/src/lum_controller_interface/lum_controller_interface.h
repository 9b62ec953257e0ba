// What the area offers to the rest of the library beyond its exported calls.
#pragma once

#include <cstdint>
#include <span>

#include "lum.h"

namespace lum {

// The directions of lum_i2c_read_write.
inline constexpr std::uint32_t module_write = 0;
inline constexpr std::uint32_t module_read = 1;

// Creates the controllers of `count` ports, of which only those in `ports` are known by number; the
// others stay empty elements of the batch.
cerrno create_controllers(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                          std::uint32_t count, std::span<const std::uint32_t> ports);

// Power of a reading, in tenths of a microwatt. A power that does not fit gives the largest number.
std::uint32_t power_of(std::uint16_t reading);

// Alarm bits that the module's flag bytes raise for a sub-port: 0x4, 0x80000 and 0x100000.
std::uint64_t module_alarms(const lum_port_data &port, std::uint32_t sub_port);

}  // namespace lum
