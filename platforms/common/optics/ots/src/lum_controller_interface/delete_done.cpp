// What becomes of the ports when the interface manager has finished a delete batch.
#include <cerrno>

#include "base/memory.h"
#include "base/shared.h"
#include "base/trace.h"
#include "bounded_copy.h"
#include "lum_chkpt.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_controller_interface";

namespace {

bool learn_name(std::uint32_t first_ifhandle, char *name);
void deleted(lum_port_node_info &node, std::uint32_t sub_port, std::uint32_t ifhandle);
void remove_port(lum_port_node_info &node);

}  // namespace

// A handle that no port carries is passed over: nothing is recorded for it.
void lum_controller_delete_done(lum_controller_delete_request *request) {
  if (request == nullptr) {
    LUM_ERROR(97, "No cntrl delete type or interface attr arrayin controller delete cb fn");
    return;
  }
  const c_object<lum_controller_delete_request> owned(request);
  const c_array<std::uint32_t> ifhandles(request->ifhandles);
  const std::int32_t count = request->count;
  if (count < 1) {
    LUM_ERROR(98, "Invalid count %d in cntrl delete cb", count);
    return;
  }
  if (!ifhandles) {
    LUM_ERROR(99, "Ifh array is NULL in operations 0%p", static_cast<const void *>(request));
    return;
  }
  const c_array<char> name = zeroed_array<char>(LUM_DEVID_NAME_SIZE);
  if (!name) {
    LUM_ERROR(100, "calloc failure errno %d", errno);
    return;
  }
  const auto rsips = zeroed_array<std::uint32_t>(static_cast<std::size_t>(count));
  if (!rsips) {
    LUM_ERROR(101, "calloc failure errno %d", errno);
    return;
  }
  const auto sub_ports = zeroed_array<std::uint32_t>(static_cast<std::size_t>(count));
  if (!sub_ports) {
    LUM_ERROR(102, "calloc failure errno %d", errno);
    return;
  }
  ports_reader reader;
  if (!learn_name(ifhandles[0], name.get())) return;

  std::int32_t found_count = 0;
  for (std::int32_t i = 0; i < count; ++i) {
    const found_sub_port found = walk_to_ifhandle(ifhandles[i]);
    if (found.node == nullptr) continue;
    rsips[found_count] = found.node->rsip;
    sub_ports[found_count] = found.sub_port;
    ++found_count;
    deleted(*found.node, found.sub_port, ifhandles[i]);
  }
  const lum_ctx *context = lum_get_ctx();
  if (context != nullptr && context->platform_cbs.ctrl_op_notify != nullptr) {
    context->platform_cbs.ctrl_op_notify(0, static_cast<std::uint32_t>(count), rsips.get(),
                                         sub_ports.get(), ifhandles.get());
  }
  LUM_INFO(103, "Controller delete done cb for %d ports, %s freed memory", count, name.get());
}

namespace {

// The batch is judged by its first handle's name.
bool learn_name(std::uint32_t first_ifhandle, char *name) {
  const found_sub_port first = walk_to_ifhandle(first_ifhandle);
  if (first.node == nullptr) {
    LUM_ERROR(104, "incorrect first Ifh in delete done for 0x%x", first_ifhandle);
    return false;
  }
  strncpy_s(name, LUM_DEVID_NAME_SIZE, first.node->data.sub_port[first.sub_port].ifname,
            LUM_IFNAME_SIZE);
  std::uint32_t iftype = 0, rack = 0, slot = 0, instance = 0, port = 0;
  if (const cerrno rc =
          lum_parse_if_name(name, &iftype, &rack, &slot, &instance, &port, nullptr, nullptr);
      rc != 0) {
    LUM_ERROR(105, "parsing ifname in delete done err %s", cerr_strerror(rc));
    return false;
  }
  LUM_INFO(106, "intf name parsed %s intf type %d", name, iftype);
  if (iftype != LUM_IFTYPE_OTS) {
    LUM_ERROR(107, "incorrect IFT in delete done for R/S/I/P: %d/%d/%d/%d", rack, slot, instance,
              port);
    return false;
  }
  return true;
}

// Records one deleted controller; the port goes with its last one.
void deleted(lum_port_node_info &node, std::uint32_t sub_port, std::uint32_t ifhandle) {
  lum_port_data &port = node.data;
  if (sub_port == 0) {
    LUM_INFO(108, "marking sub port 0 delete done");
  } else {
    LUM_INFO(109, "marking sub port 1 delete done");
  }
  shared_store(port.sub_port[sub_port].created, 0);

  if (lum_pm_ptah_port_op(0, controller_id_of(port, sub_port, ifhandle)) != 0) {
    LUM_ERROR(110, "PM PTAH instance delete failed");
  }

  if (shared_load(port.sub_port[0].created) == 0 && shared_load(port.sub_port[1].created) == 0) {
    remove_port(node);
  }
}

// The reader section of the batch keeps the node's memory beyond its removal. Whoever creates the
// port again meanwhile waits until its old record is gone.
void remove_port(lum_port_node_info &node) {
  lum_port_data &port = node.data;
  lum_optics_led_set_state(node.rsip, 0, LUM_LED_OFF);
  const record_hold hold(rsip_of(port));
  if (is_replaced(port)) return;
  LUM_INFO(111, "calling lum platform ports deinit");
  lum_platform_ports_deinit(port.rack, port.slot, port.instance, port.port);
  const cerrno rc = lum_port_chkpt_delete(&port);
  LUM_INFO(112, "checkpoint deleted for rsip: 0x%x rc %d", node.rsip, rc);
}

}  // namespace
