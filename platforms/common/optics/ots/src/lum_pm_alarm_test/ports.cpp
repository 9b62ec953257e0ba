// The PM and PTAH ports of controller interfaces.
#include <cerrno>
#include <cstdio>

#include "base/trace.h"
#include "pm_ui.h"
#include "ptah.h"

using namespace lum;

static constexpr char trace_area[] = "lum_pm_alarm_test";

static cerrno create_ports(std::uint32_t ifhandle, const char *name);
static cerrno delete_ports(std::uint32_t ifhandle);

cerrno lum_pm_ptah_port_op(std::uint32_t operation, lum_controller_id controller) {
  char name[LUM_IFNAME_SIZE] = {};
  std::snprintf(name, sizeof name, "Ots%d_%d_%d_%d_%d", controller.rack, controller.slot,
                controller.instance, controller.port, controller.sub_port);
  switch (operation) {
    case 0:
      return delete_ports(controller.ifhandle);
    case 1:
      return create_ports(controller.ifhandle, name);
    default:
      return 0;
  }
}

void lum_delete_pm_ports() {}

static cerrno create_ports(std::uint32_t ifhandle, const char *name) {
  if (pm_ui_db_search_node(ifhandle) != nullptr) return 0;
  std::uint64_t ptah_handle = 0;
  cerrno rc = pm_ui_port_create(LUM_IFTYPE_OTS, ifhandle, name);
  rc |= ptah_al_port_create(LUM_IFTYPE_OTS, ifhandle, name, 0, 1, &ptah_handle);
  LUM_INFO(68, "Create PM, PTAH ports for %x with rc %d\n", ifhandle, rc);
  return rc;
}

static cerrno delete_ports(std::uint32_t ifhandle) {
  if (pm_ui_db_search_node(ifhandle) == nullptr) return 0;
  cerrno rc = ptah_al_port_delete(ifhandle);
  rc |= pm_ui_port_delete(ifhandle);
  LUM_INFO(69, "Delete PM, PTAH ports for %x with rc %d\n", ifhandle, rc);
  return rc;
}
