// Slots and ports come and go.
#include <cerrno>
#include <cstring>

#include "base/locks.h"
#include "base/memory.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_chkpt.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_api";

static constexpr std::uint32_t cut16(std::uint32_t number) { return number & 0xFFFF; }
static void prepare_port(std::uint32_t rsip, std::uint32_t port_handle);
static void stop_polling(lum_port_data &port, std::uint32_t rsip);

cerrno lum_plat_init(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                     const lum_slot_props *props) {
  if (props == nullptr) return EINVAL;
  shared_store(lum_get_ctx()->resync, 0);
  LUM_INFO(18, "LUM_API: entry: R/S/I: %d/%d/%d/\n", rack, slot, instance);
  lum_slot_properties_init(cut16(slot), cut16(instance), props);
  const cerrno rc = lum_ctx_derive_hw_nodeid(rack, slot, instance);
  if (rc != 0) {
    LUM_ERROR(19, "lum_platform_ctx_derive_hw_nodeid failed rc:0x%x[%s]\n", rc, cerr_strerror(rc));
  }
  return rc;
}

cerrno lum_plat_deinit(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance) {
  lum_slot_properties_deinit(cut16(slot), cut16(instance));
  LUM_INFO(20, "exit: R/S/I: %d/%d/%d/ rc: %d\n", rack, slot, instance, 0);
  return 0;
}

cerrno lum_create_ports(std::uint32_t count, const lum_port_props *props) {
  if (count != 0 && props == nullptr) return EINVAL;
  shared_store(lum_get_ctx()->resync, 0);
  const std::uint32_t first_rsip = count == 0 ? 0 : props[0].rsip;
  std::uint32_t slot = slot_in(first_rsip);
  std::uint32_t instance = instance_in(first_rsip);
  LUM_INFO(21, "LUM_API: entry: R/S/I: %d/%d/%d/\n", 0, slot, instance);
  for (std::uint32_t i = 0; i < count; ++i) wait_for_deletion(props[i].rsip);
  lum_port_properties_init(slot, instance, static_cast<std::uint16_t>(count), props);

  c_array<std::uint32_t> handles = zeroed_array<std::uint32_t>(count);
  c_array<std::uint32_t> ports = zeroed_array<std::uint32_t>(count);
  if (!handles || !ports) return ENOMEM;

  std::uint32_t last_rsip = first_rsip;
  for (std::uint32_t i = 0; i < count; ++i) {
    last_rsip = props[i].rsip;
    slot = slot_in(last_rsip);
    instance = instance_in(last_rsip);
    ports[i] = port_in(last_rsip);
    handles[i] = lum_plat_get_port_handle(slot, instance, static_cast<std::uint16_t>(ports[i]));
    lum_plat_set_sdev_ctx(slot, instance, handles[i], last_rsip);
  }
  const std::uint32_t rack = rack_in(last_rsip);
  lum_add_device_to_ports_db(rack, slot, instance, count, ports.get(), handles.get());
  lum_fill_initial_hw_info(rack, slot, instance, count, ports.get());
  const cerrno rc = lum_ots_controllers_create(rack, slot, instance, count, ports.get());
  if (rc != 0) LUM_ERROR(22, "OTS controller create failed for rsip: (0x%x)", last_rsip);
  LUM_INFO(23, "LUM_API: exit: R/S/I: %d/%d/%d/ rc:%d\n", rack, slot, instance, rc);
  return rc;
}

cerrno lum_add_device_to_ports_db(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                                  std::uint32_t count, const std::uint32_t *ports,
                                  const std::uint32_t *port_handles) {
  LUM_INFO(24, "Creating Ports inside Port-DB for R/S/I: %d/%d/%d\n", rack, slot, instance);
  const cerrno rc = lum_platform_ctx_init(rack, slot, instance, count, ports);
  for (std::uint32_t i = 0; i < count; ++i) {
    prepare_port(pack_rsip(rack, slot, instance, cut16(ports[i])), port_handles[i]);
  }
  return rc;
}

// The nodes go when the interface manager confirms the deletion.
cerrno lum_delete_ports(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                        std::uint32_t count, const std::uint32_t *ports) {
  if (count != 0 && ports == nullptr) return EINVAL;
  LUM_INFO(25, "LUM_API: entry: R/S/I:%d/%d/%d/ num_ports:%d\n", rack, slot, instance, count);
  c_array<std::uint32_t> found = zeroed_array<std::uint32_t>(count);
  if (!found) {
    LUM_ERROR(26, "Slot %d inst %d calloc failed in del ports\n", slot, instance);
    return ENOMEM;
  }
  ports_reader reader;
  std::uint32_t found_count = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    LUM_INFO(27, "[%d] port to be deleted %d/%d/%d/%d\n", i, rack, slot, instance, ports[i]);
    const std::uint32_t rsip = pack_rsip(rack, slot, instance, ports[i]);
    lum_port_node_info *node = find_port(rsip);
    if (node == nullptr) {
      LUM_ERROR(28, "Port not found in DB for rsip=0x%x\n", rsip);
      continue;
    }
    found[found_count++] = ports[i];
    stop_polling(node->data, rsip);
    LUM_INFO(29, "proceeding with delete port R/S/I/P: %d/%d/%d/%d\n", rack, slot, instance,
             ports[i]);
  }
  LUM_INFO(30, "proceeding with delete ports R/S/I: %d/%d/%d/\n", rack, slot, instance);
  for (const lum_port_node_info &node : all_ports()) {
    LUM_INFO(31, "rsip=0x%x xcvr_disabled=0x%x\n", node.rsip,
             shared_load(node.data.transceiver_disabled));
  }
  const cerrno rc = lum_ots_controllers_delete(rack, slot, instance, found_count, found.get());
  LUM_INFO(32, "LUM_API: exit: R/S/I: %d/%d/%d/ rc: %d\n", rack, slot, instance, rc);
  return rc;
}

void lum_del_device_from_ports_db(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                                  std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t port =
        lum_plat_port_idx(cut16(slot), cut16(instance), static_cast<std::uint16_t>(i));
    if (lum_ports_db_remove_entry(pack_rsip(rack, slot, instance, port)) == 0) {
      LUM_INFO(33, "Removed node for (%d,%d,%d,%d)", rack, slot, instance, port);
    } else {
      LUM_ERROR(34, "failed to remove node for (%d,%d,%d,%d)", rack, slot, instance, port);
    }
  }
}

// The LED goes to fault with every update, whatever the state.
cerrno lum_update_port(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                       std::uint32_t port, std::uint32_t state) {
  const std::uint32_t rsip = pack_rsip(rack, slot, instance, port);
  ports_reader reader;
  lum_port_node_info *node = find_port(rsip);
  if (node == nullptr) {
    LUM_ERROR(35, "port_node NULL for rsip: 0x%x", rsip);
    return EINVAL;
  }
  if (lum_ots_controllers_update(rack, slot, instance, port, state) != 0) {
    LUM_ERROR(36, "Controller state update failed\n");
  }
  if (lum_optics_led_set_state(rsip, 0, LUM_LED_FAULT) != 0) {
    LUM_ERROR(37, "LED state update failed\n");
  }
  if (state == 0) return 0;
  for (std::uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
    lum_provision_port_cfg_data(s, &node->data, shared_load(node->data.port_cfg[s].changed_bits));
  }
  return 0;
}

// The resync marker stays until the next resync, slot or creation.
cerrno lum_replay_controllers() {
  shared_store(lum_get_ctx()->resync, 1);
  LUM_INFO(38, "Replaying controllers for all ports\n");
  const cerrno rc = lum_replay_ots_controllers();
  LUM_INFO(39, "Done with replaying controllers for all ports rc: %d\n", rc);
  return rc;
}

void lum_resync_with_ea() {
  LUM_INFO(40, "Need to Resync-with EA-Client, sending Replay-Request from EA-Server\n");
  lum_server_trigger_replay_request();
  shared_store(lum_get_ctx()->resync, 0);
}

void lum_change_rp_role() {}

cerrno lum_get_hw_info_by_ifh(std::int32_t count, const std::uint32_t *ifhandles,
                              lum_hw_info_out *records) {
  return lum_get_hw_info(count, ifhandles, records);
}

cerrno lum_set_hw_info_by_ifh(std::int32_t count, const std::uint32_t *ifhandles,
                              const lum_hw_info_in *records, const std::uint64_t *changed_bits) {
  return lum_set_hw_info(count, ifhandles, records, changed_bits);
}

// The result is the last element's.
cerrno lum_set_controller_ready_info(std::int32_t count, const std::uint32_t *ifhandles,
                                     const char (*names)[LUM_IFNAME_SIZE]) {
  if (ifhandles == nullptr || names == nullptr) return EINVAL;
  cerrno rc = 0;
  for (std::int32_t i = 0; i < count; ++i) {
    char name[LUM_IFNAME_SIZE + 1] = {};  // a name may fill its element without a NUL
    std::memcpy(name, names[i], LUM_IFNAME_SIZE);
    rc = lum_update_ifhandle(name, ifhandles[i]);
    LUM_INFO(41, "Update ifh 0x%x for %s, rc %d\n", ifhandles[i], name, rc);
  }
  return rc;
}

// Gives a node its handle. A new node has its mutex from the start, for any thread may have found
// it already; one that was there before may have been asked to go, which its creation ends.
static void prepare_port(std::uint32_t rsip, std::uint32_t port_handle) {
  lum_ports_db_update_entry(rsip, port_handle);
  ports_reader reader;
  lum_port_node_info *node = find_port(rsip);
  if (node == nullptr) {
    LUM_ERROR(42, "Port not found in DB for rsip=0x%x\n", rsip);
    return;
  }
  shared_store(node->data.deletion_asked, 0);
  port_lock(node->data).renew();
}

// Keeps the port's mutex, so that no use of the module starts before the node goes.
static void stop_polling(lum_port_data &port, std::uint32_t rsip) {
  shared_store(port.deletion_asked, 1);
  shared_store(port.is_dom_enabled, 0);
  shared_store(port.transceiver_disabled, 1);
  LUM_INFO(43, "DOM stopped for rsip=0x%x\n", rsip);
  port_hold lock(port, deletion_site);
  if (lock.error() != 0) {
    LUM_ERROR(44, "module access lock failed with rc %d\n", lock.error());
  } else {
    lock.keep();
  }
  LUM_INFO(45, "delete ports: after lock for rsip=0x%x\n", rsip);
}
