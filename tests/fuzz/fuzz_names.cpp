// Interface names of any form, through the parser and every call that takes a name.
#include <cstdint>
#include <string>

#include "lum.h"

static const bool started = [] {
  lum_platform_data_init(0, 0);
  const std::uint32_t ports[] = {0, 1, 7};
  const std::uint32_t handles[] = {1, 2, 3};
  lum_add_device_to_ports_db(0, 3, 0, 3, ports, handles);
  return true;
}();

// A name without a sub-port ends the process by design once its port is found.
static bool has_sub_port(const char *name) {
  std::uint32_t valid = 0, sub_port = 0;
  const cerrno rc =
      lum_parse_if_name(name, nullptr, nullptr, nullptr, nullptr, nullptr, &valid, &sub_port);
  return rc != 0 || valid != 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string name(reinterpret_cast<const char *>(data), size);
  lum_port_data *port = nullptr;
  lum_get_port_info(name.c_str(), &port);
  lum_update_ifhandle(name.c_str(), static_cast<std::uint32_t>(size));
  if (!has_sub_port(name.c_str())) return 0;
  lum_device_id_td device;
  lum_ports_db_ifname2devid(name.c_str(), &device);
  lum_modules_port_create(name.c_str(), nullptr);
  lum_modules_port_delete(name.c_str());
  return 0;
}
