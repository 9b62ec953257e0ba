// What becomes of the ports when the interface manager has finished a create or update batch.
#include "base/memory.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_ports_db/lum_ports_db.h"

#include <cerrno>
#include <cstring>

using namespace lum;

static constexpr char trace_area[] = "lum_controller_interface";

namespace {

std::size_t array_size(std::int32_t count) {
  return count < 0 ? 0 : static_cast<std::size_t>(count);
}

// What the client is told of a batch.
struct notification {
  explicit notification(std::int32_t count)
      : rsips(zeroed_array<std::uint32_t>(array_size(count))),
        sub_ports(zeroed_array<std::uint32_t>(array_size(count))),
        ifhandles(zeroed_array<std::uint32_t>(array_size(count))) {}
  explicit operator bool() const { return rsips && sub_ports && ifhandles; }

  c_array<std::uint32_t> rsips;
  c_array<std::uint32_t> sub_ports;
  c_array<std::uint32_t> ifhandles;
};

std::uint32_t rsip_of(const lum_controller_id &id) {
  return pack_rsip(id.rack, id.slot, id.instance, id.port);
}

cerrno created(lum_port_node_info &node, const lum_controller_id &id);
cerrno set_led(std::uint32_t rsip, cerrno running);

}  // namespace

void lum_controller_create_done(lum_controller_create_request *request) {
  if (request == nullptr || request->entries == nullptr) {
    LUM_ERROR(76, "No cntrl create type or interface attr arrayin controller create cb fn");
    return;
  }
  const c_object<lum_controller_create_request> owned(request);
  const c_array<lum_controller_create_entry> entries(request->entries);
  const std::int32_t count = request->count;
  if (request->resync != 0) LUM_INFO(77, "In Create done on resync");

  const notification told(count);
  ports_reader reader;
  cerrno running = 0;
  for (std::int32_t i = 0; i < count; ++i) {
    const lum_controller_id &id = entries[i].id;
    const std::uint32_t rsip = rsip_of(id);
    LUM_INFO(78,
             "Controller Created Intf_type %d ifhandle 0x%x for rack %d slot %d inst %d port %d",
             request->intf_type, id.ifhandle, id.rack, id.slot, id.instance, id.port);
    lum_port_node_info *node = find_port(rsip);
    if (node == nullptr) {
      LUM_INFO(79, "Port Not Found in DB for rsip=%d", rsip);
      return;
    }
    LUM_INFO(80, "Port Found for rsip=0x%x lum_port_node_info=%p", rsip,
             static_cast<const void *>(node));
    if (request->intf_type != LUM_IFTYPE_OTS) {
      LUM_ERROR(81, "wrong intf type %d in create done", request->intf_type);
      continue;
    }
    if (told) {
      told.rsips[i] = rsip;
      told.sub_ports[i] = id.sub_port;
      told.ifhandles[i] = id.ifhandle;
    }
    running = created(*node, id);
  }
  if (count % 2 != 0) {
    LUM_ERROR(82, "wrong ifh numbers %d in create done", count);
    return;
  }
  const lum_ctx *context = lum_get_ctx();
  if (count >= 0 && told && context != nullptr && context->platform_cbs.ctrl_op_notify != nullptr) {
    context->platform_cbs.ctrl_op_notify(1, static_cast<std::uint32_t>(count), told.rsips.get(),
                                         told.sub_ports.get(), told.ifhandles.get());
  }
  for (std::int32_t i = 0; i < count; ++i) running = set_led(rsip_of(entries[i].id), running);
  LUM_INFO(83, "Controller create done cb for %d ports, freeing allocated memory", count);
}

void lum_controller_update_done(lum_controller_update_request *request) {
  if (request == nullptr) {
    LUM_ERROR(84, "No cntrl update type or interface attr arrayin controller update cb fn");
    return;
  }
  const c_object<lum_controller_update_request> owned(request);
  const c_array<std::uint32_t> ifhandles(request->ifhandles);
  const std::int32_t count = request->count;
  const c_array<std::uint32_t> rsips = zeroed_array<std::uint32_t>(array_size(count));
  if (count < 1) {
    LUM_ERROR(85, "Invalid count %d in cntrl update cb", count);
  } else if (rsips && ifhandles) {
    for (std::int32_t i = 0; i < count; ++i) {
      lum_ports_db_get_rsip_from_ifh(ifhandles[i], &rsips[i]);
    }
    const lum_ctx *context = lum_get_ctx();
    if (context != nullptr && context->platform_cbs.ctrl_update_notify != nullptr) {
      context->platform_cbs.ctrl_update_notify(static_cast<std::uint32_t>(count), rsips.get());
    }
  }
  LUM_INFO(86, "Controller update done cb for %d ports, freed memory", count);
}

cerrno lum_update_ifhandle(const char *ifname, std::uint32_t ifhandle) {
  const char *shown = or_empty(ifname);
  LUM_INFO(87, "Parsing Ifname '%s' ifhandle 0x%x:", shown, ifhandle);
  std::uint32_t iftype = 0, rack = 0, slot = 0, instance = 0, port = 0;
  std::uint32_t sub_port_valid = 0, sub_port = 0;
  if (const cerrno rc = lum_parse_if_name(ifname, &iftype, &rack, &slot, &instance, &port,
                                          &sub_port_valid, &sub_port);
      rc != 0) {
    LUM_ERROR(88, "Ifname '%s' ifhandle %x: Parse rsip failed", shown, ifhandle);
    return rc;
  }
  const std::uint32_t rsip = pack_rsip(rack, slot, instance, port);
  LUM_INFO(89,
           "Parsing Ifname '%s' ifhandle 0x%x: Parse rsip=0x%x r=%d s=%d i=%d p=%d sub_port=%d "
           "sub_port_valid=%d success",
           shown, ifhandle, rsip, rack, slot, instance, port, sub_port, sub_port_valid);

  lum_device_id_td record = {};
  record.iftype = iftype;
  record.valid = LUM_DEVID_IFTYPE;
  if (ifname != nullptr) {
    std::strncpy(record.ifname, ifname, LUM_IFNAME_SIZE);
    record.valid |= LUM_DEVID_IFNAME;
  }
  if (ifhandle != 0) {
    record.ifhandle = ifhandle;
    record.valid |= LUM_DEVID_IFHANDLE;
  }
  ports_reader reader;
  lum_port_node_info *node = find_port(rsip);
  if (node == nullptr) {
    LUM_ERROR(90, "Port Not Found in DB\n for rsip=%d", rsip);
    return EINVAL;
  }
  LUM_INFO(91, "Port Found for rsip=%d lum_port_node_info=%p", rsip,
           static_cast<const void *>(node));
  record.port_handle = shared_load(node->port_handle);
  record.valid |= LUM_DEVID_PORT_HANDLE;
  LUM_INFO(92, "if type:%d ifname %s rsip:%d port_handle:0x%x", iftype, record.ifname, rsip,
           record.port_handle);
  if (sub_port >= LUM_SUB_PORTS) return EINVAL;
  shared_write(&node->data.device_id[sub_port], &record, sizeof record);
  shared_store(node->data.sub_port[sub_port].ifhandle, ifhandle);
  return 0;
}

namespace {

// Records one created controller; the port is polled once it has both. Returns the PM and PTAH
// ports' result.
cerrno created(lum_port_node_info &node, const lum_controller_id &id) {
  lum_port_data &port = node.data;
  if (id.sub_port < LUM_SUB_PORTS) {
    lum_sub_port_intf &interface = port.sub_port[id.sub_port];
    shared_store(interface.ifhandle, id.ifhandle);
    shared_store(interface.created, 1);
    lum_update_ifhandle(interface.ifname, id.ifhandle);
  }
  const cerrno rc = lum_pm_ptah_port_op(1, id);
  if (rc != 0) LUM_ERROR(93, "PM PTAH instance create failed");
  if (shared_load(port.sub_port[0].created) != 0 && shared_load(port.sub_port[1].created) != 0) {
    LUM_INFO(94, "enabling DOM for rsip: 0x%x", node.rsip);
    shared_store(port.inserted, 1);
    shared_store(port.is_dom_enabled, 1);
  }
  return rc;
}

// Lights a created port's LED. One failure leaves the LEDs of the rest of the batch alone.
cerrno set_led(std::uint32_t rsip, cerrno running) {
  std::uint32_t port_handle = 0;
  if (const cerrno rc = lum_ports_db_rsip2port_handle(rsip, &port_handle); rc != 0) {
    LUM_ERROR(95, "port_handle not found for rsip: %d, rc:0x%x", rsip, rc);
    return EINVAL;
  }
  LUM_INFO(96, "port_handle is 0x%x for rsip: %d", port_handle, rsip);
  return running == 0 ? lum_optics_led_set_state(rsip, 0, LUM_LED_FAULT) : running;
}

}  // namespace
