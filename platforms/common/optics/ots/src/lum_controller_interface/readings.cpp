// What the module's bytes mean.
#include <cmath>
#include <limits>

#include "lum_controller_interface/lum_controller_interface.h"

namespace lum {

// A reading with bit 12 set is negative; what is taken away from it is 0x10001, not 0x10000.
std::uint32_t power_of(std::uint16_t reading) {
  const std::int32_t value = (reading & 0x1000) != 0 ? std::int32_t{reading} - 0x10001 : reading;
  const float exponent = static_cast<float>(value) / 1000.0F;
  const auto power = static_cast<float>(std::pow(10.0, static_cast<double>(exponent)) * 10000.0);
  if (!(power > 0.00001F)) return 0;
  constexpr auto largest = std::numeric_limits<std::uint32_t>::max();
  return power >= static_cast<float>(largest) ? largest : static_cast<std::uint32_t>(power);
}

std::uint64_t module_alarms(const lum_port_data &port, std::uint32_t sub_port) {
  const std::uint8_t byte_13 = module_flags_at<13>(port);
  const std::uint8_t byte_64 = module_flags_at<64>(port);
  std::uint64_t alarms = 0;
  if ((byte_13 & (sub_port == 0 ? 0x03 : 0x30)) != 0) alarms |= LUM_ALARM_FLAG_13;
  if ((byte_64 & (sub_port == 0 ? 0x20 : 0x02)) != 0) alarms |= LUM_ALARM_FLAG_64_HIGH;
  if ((byte_64 & (sub_port == 0 ? 0x10 : 0x01)) != 0) alarms |= LUM_ALARM_FLAG_64_LOW;
  return alarms;
}

}  // namespace lum
