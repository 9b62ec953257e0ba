// The port model's start-up, the nodes of new ports, and their removal.
#include <atomic>
#include <cerrno>
#include <cstring>

#include "base/fatal.h"
#include "base/locks.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_pd_data";

// Controllers the library accounts for.
static std::atomic<std::uint32_t> ots_controllers{0};

static void name_sub_port(lum_port_data &port, std::uint32_t sub_port);
static bool has_controllers(const lum_port_data &port);
static cerrno remove_port(lum_port_node_info &node);

cerrno lum_platform_data_init(event_manager, std::uint32_t) {
  if (lum_get_ctx() == nullptr) {
    LUM_ERROR(51, "context is NULL\n");
    return EINVAL;
  }
  LUM_INFO(52, "LUM PD Data Init\n");
  std::memset(static_cast<void *>(&lum_platform), 0, sizeof lum_platform);
  if (lum_ports_db_init() != 0) {
    LUM_ERROR(53, "LUM Structures Init Failed\n");
    fatal("CERR_IS_OK(lum_ports_db_init())", trace_area, __LINE__, __func__);
  }
  LUM_INFO(54, "LUM Structures Init Success\n");
  return 0;
}

cerrno lum_platform_ctx_init(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                             std::uint32_t count, const std::uint32_t *ports) {
  if (lum_get_ctx() == nullptr) {
    LUM_ERROR(55, "context is NULL\n");
    return EINVAL;
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    lum_port_data port = {};
    port.rack = rack;
    port.slot = slot;
    port.instance = instance;
    port.port = ports[i];
    for (std::uint32_t s = 0; s < LUM_SUB_PORTS; ++s) name_sub_port(port, s);

    const cerrno rc = lum_ports_db_add_entry(rsip_of(port), &port);
    if (rc != 0) {
      LUM_ERROR(56, "Error in adding Port=%d to Optics-DB:\n", ports[i]);
      LUM_ERROR(57, "lum_platform_ports_init failed rc:0x%x[%s]\n", rc, cerr_strerror(rc));
      return rc;
    }
    LUM_INFO(58, "Succesfullly Added  Port=%d to ports-DB:\n", ports[i]);
  }
  return 0;
}

// Whether the removed node's successor is fetched before or after the removal makes no difference:
// the walk keeps the node's memory, and the tree finds the successor of its key.
cerrno lum_platform_ports_deinit(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                                 std::uint32_t port) {
  LUM_INFO(59, "executing for r/s/i/p: %d/%d/%d/%d\n", rack, slot, instance, port);
  for (lum_port_node_info &node : all_ports()) {
    if (!stands_at(node.data, rack, slot, instance, port) || has_controllers(node.data)) continue;
    if (const cerrno rc = remove_port(node); rc != 0) return rc;
  }
  return 0;
}

cerrno lum_ctx_derive_hw_nodeid(std::uint32_t, std::uint32_t, std::uint32_t) { return 0; }

void lum_inc_ots_cntrs(std::uint32_t n) { ots_controllers.fetch_add(n); }

void lum_dec_ots_cntrs(std::uint32_t n) {
  std::uint32_t have = ots_controllers.load();
  while (!ots_controllers.compare_exchange_weak(have, have > n ? have - n : 0)) {
  }
}

std::uint32_t lum_num_ots_ctrls() { return ots_controllers.load(); }

static void name_sub_port(lum_port_data &port, std::uint32_t sub_port) {
  lum_sub_port_intf &interface = port.sub_port[sub_port];
  const cerrno rc = lum_construct_if_name(LUM_IFTYPE_OTS, port.rack, port.slot, port.instance,
                                          port.port, 0, sub_port, interface.ifname);
  if (rc == 0) {
    LUM_INFO(60, "iftype:%d rsip:%d/%d/%d/%d/%d ifname '%s'\n", LUM_IFTYPE_OTS, port.rack,
             port.slot, port.instance, port.port, sub_port, interface.ifname);
  } else {
    LUM_ERROR(61, "OTS iftype:%d rsip:%d/%d/%d/%d/%d ifname'%s' error rc:0x%x[%s]\n",
              LUM_IFTYPE_OTS, port.rack, port.slot, port.instance, port.port, sub_port,
              interface.ifname, rc, cerr_strerror(rc));
  }
  interface.iftype = LUM_IFTYPE_OTS;
}

static bool has_controllers(const lum_port_data &port) {
  for (const lum_sub_port_intf &interface : port.sub_port) {
    if (shared_load(interface.controller_up) != 0 || shared_load(interface.created) != 0) {
      return true;
    }
  }
  return false;
}

// The port's mutex is expected to be kept by the deletion. It is destroyed with the node's memory,
// when no thread can be about to take it.
static cerrno remove_port(lum_port_node_info &node) {
  lum_port_data &port = node.data;
  if (const int rc = port_lock(port).release(); rc != 0) {
    LUM_ERROR(62, "module access unlock failed with rc %d\n", rc);
  }
  if (const cerrno rc = lum_ports_db_remove_entry(node.rsip); rc != 0) {
    LUM_ERROR(63, "Error in Removing port %d from inst %d of Ports-DB:\n", port.port,
              port.instance);
    return rc;
  }
  LUM_INFO(64, "Succesfully removed Port %d from inst %d of Ports-DB:\n", port.port, port.instance);
  lum_port_properties_deinit(port.slot, port.instance, static_cast<std::uint16_t>(port.port));
  return 0;
}
