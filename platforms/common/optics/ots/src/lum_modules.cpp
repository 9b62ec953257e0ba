#include "lum_modules.h"

#include "base/trace.h"

using namespace lum;

static constexpr char trace_area[] = "lum_modules";

namespace {

lum_module module_table[] = {
    {0, "PD Data Module", lum_platform_data_init, nullptr, nullptr},
    {0, "PD Module", lum_platform_init, nullptr, nullptr},
    {0, "SERVER", lum_server_module_init, nullptr, nullptr},
};
std::uint8_t all_modules_done;  // under the start-up lock

}  // namespace

std::span<lum_module> lum::lum_module_table() { return module_table; }

std::uint32_t lum_modules_init(event_manager evm, std::uint32_t restart) {
  if (all_modules_done != 0) {
    LUM_INFO(177, "all module initialisation already done\n");
    return 0;
  }
  for (lum_module &module : lum_module_table()) {
    if (module.init_done != 0) continue;
    if (const cerrno rc = module.init(evm, restart); rc != 0) {
      LUM_ERROR(178, "%s module initialisation has failed\n", module.name);
      return rc;
    }
    module.init_done = 1;
    LUM_INFO(179, "%s module initialisation succeeded\n", module.name);
  }
  all_modules_done = 1;
  return 0;
}

std::uint32_t lum_modules_port_create(const char *ifname, const void *argument) {
  lum_device_id_td port = {};
  if (const cerrno rc = lum_ports_db_ifname2devid(ifname, &port); rc != 0) {
    LUM_ERROR(180, "failed to get devinfo for ifname:%s, rc:0x%x[%s]\n", or_empty(ifname), rc,
              cerr_strerror(rc));
    return rc;
  }
  for (const lum_module &module : lum_module_table()) {
    if (module.port_create == nullptr) continue;
    if (const cerrno rc = module.port_create(&port, argument); rc != 0) {
      LUM_ERROR(181, "create handler failed for ifname:%s, module: %s rc:0x%x[%s]\n",
                or_empty(ifname), module.name, rc, cerr_strerror(rc));
    }
  }
  return 0;
}

// The modules are told of the deletion even when the port is not known any more.
std::uint32_t lum_modules_port_delete(const char *ifname) {
  lum_device_id_td port = {};
  if (const cerrno rc = lum_ports_db_ifname2devid(ifname, &port); rc != 0) {
    LUM_ERROR(182, "Failed to get devinfo for ifname:%s, rc:0x%x[%s]\n", or_empty(ifname), rc,
              cerr_strerror(rc));
  }
  for (const lum_module &module : lum_module_table()) {
    if (module.port_delete == nullptr) continue;
    if (const cerrno rc = module.port_delete(&port); rc != 0) {
      LUM_ERROR(183, "delete handler failed for ifname:%s, module: %s rc:0x%x[%s]\n",
                or_empty(ifname), module.name, rc, cerr_strerror(rc));
    }
  }
  return 0;
}
