// What tests of the configuration's way into a module have in common.
#pragma once

#include "one_port.h"

namespace support {

inline constexpr uint64_t bit_threshold = 0x2;
inline constexpr uint64_t bit_p2 = 0x200;
inline constexpr uint64_t bit_settings = 0x10000000;
inline constexpr uint64_t bit_mode = 0x40000;

class provisioning : public one_port {
 protected:
  static lum_port_cfg &cfg(uint32_t sub_port) { return port().port_cfg[sub_port]; }
  static cerrno provision(uint32_t sub_port, uint64_t bits) {
    return lum_provision_port_cfg_data(sub_port, &port(), bits);
  }
  static void configure_settings(uint32_t sub_port) {
    cfg(sub_port).setting_a = 0x30;  // 480 = 0x01E0
    cfg(sub_port).setting_b = 0x21;  // 330 = 0x014A
    cfg(sub_port).enable_flag = 1;
    cfg(sub_port).sub1_flag = 1;
  }
};

}  // namespace support
