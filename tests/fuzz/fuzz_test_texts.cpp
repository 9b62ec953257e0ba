// Alarm test texts of any form. A text that is taken must never reach beyond the port it names.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "lum.h"

static lum_port_node_info *node = [] {
  lum_platform_data_init(0, 0);
  const std::uint32_t ports[] = {3};
  const std::uint32_t handles[] = {1};
  lum_add_device_to_ports_db(0, 1, 0, 1, ports, handles);
  return lum_get_port_node_from_port_handle(1);
}();

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  lum_ots_test_alarms_pm(nullptr, text.c_str());
  const std::string named = "x#Ots0_1_0_3_1#" + text;
  lum_ots_test_alarms_pm(nullptr, named.c_str());
  constexpr std::uint64_t known = 0x1 | 0x2 | 0x4 | 0x80000 | 0x100000 | 0x60000;
  for (const lum_test_injection &injection : node->data.test) {
    if ((injection.test_alarm_bits & ~known) != 0) std::abort();
  }
  return 0;
}
