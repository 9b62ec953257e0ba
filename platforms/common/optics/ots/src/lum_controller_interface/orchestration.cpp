// Batches for the interface manager, built from the ports database: sub-port 0, then sub-port 1 of
// each port. The database is walked from its first node for each listed port.
#include <cerrno>
#include <limits>

#include "base/memory.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_controller_interface/lum_controller_interface.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_controller_interface";

namespace {

// A create batch being built, inside a reader section: its names stand in the port nodes. What is
// not sent stays allocated, and so does what was refused: the interface manager has seen its
// address.
struct create_batch {
  explicit create_batch(std::uint32_t controllers);
  bool allocated() const { return rc == 0; }
  bool full() const { return filled == size; }
  void add(lum_port_data &port, std::uint32_t sub_port);
  cerrno send();
  void abandon();

  ports_reader reader;
  std::uint32_t size;
  std::uint32_t filled = 0;
  cerrno rc = 0;
  c_object<lum_controller_create_request> request;
  c_array<lum_controller_create_entry> entries;
  c_array<const char *> names;
  c_array<std::uint16_t> types;
};

// The largest number of ports whose controllers can be counted.
constexpr std::uint32_t max_ports = std::numeric_limits<std::int32_t>::max() / LUM_SUB_PORTS;

void reset_status(lum_port_data &port);
cerrno create_port(create_batch &batch, lum_port_data &port, std::uint32_t rsip);

}  // namespace

cerrno lum_ots_controllers_create(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                                  std::uint32_t count, const std::uint32_t *ports) {
  return create_controllers(rack, slot, instance, count, std::span(ports, count));
}

cerrno lum::create_controllers(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                               std::uint32_t count, std::span<const std::uint32_t> ports) {
  if (count > max_ports) return ENOMEM;
  create_batch batch(LUM_SUB_PORTS * count);
  if (!batch.allocated()) return batch.rc;
  cerrno rc = 0;
  for (std::uint32_t i = 0; i < count && i < ports.size(); ++i) {
    lum_port_node_info *node = walk_to(rack, slot, instance, ports[i]);
    if (node != nullptr) rc = create_port(batch, node->data, node->rsip);
  }
  if (batch.filled != 0) return batch.send();
  batch.abandon();
  return rc;
}

// The count of controllers may be behind the database; no more than that are replayed.
cerrno lum_replay_ots_controllers() {
  const std::uint32_t controllers = lum_num_ots_ctrls();
  if (controllers == 0) {
    LUM_ERROR(155, "Number of controllers is 0 nothing to replay!\n");
    return 0;
  }
  create_batch batch(controllers);
  if (!batch.allocated()) return batch.rc;
  for (lum_port_node_info &node : all_ports()) {
    lum_port_data &port = node.data;
    for (std::uint32_t s = 0; s < LUM_SUB_PORTS && !batch.full(); ++s) {
      LUM_INFO(156, "controller replay r/s/i/p/s : %d/%d/%d/%d/%d \n", port.rack, port.slot,
               port.instance, port.port, s);
      reset_status(port);
      batch.add(port, s);
      LUM_INFO(157, "controller replay type %d ifname %s is added to list\n",
               port.sub_port[s].iftype, port.sub_port[s].ifname);
    }
  }
  if (batch.filled != 0) return batch.send();
  batch.abandon();
  return 0;
}

cerrno lum_ots_controllers_update(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                                  std::uint32_t port, std::uint32_t state) {
  c_array<std::uint32_t> ifhandles = zeroed_array<std::uint32_t>(LUM_SUB_PORTS);
  c_object<lum_controller_update_request> request = zeroed_object<lum_controller_update_request>();
  if (!ifhandles || !request) {
    LUM_ERROR(158, "calloc failed with errno: %d\n", errno);
    return ENOMEM;
  }
  std::uint32_t states[LUM_SUB_PORTS] = {state, state};
  request->count = LUM_SUB_PORTS;
  request->ifhandles = ifhandles.get();
  request->states = states;
  request->state_change = 1;
  for (const lum_port_node_info &node : all_ports()) {
    if (!stands_at(node.data, rack, slot, instance, port)) continue;
    for (std::uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
      ifhandles[s] = shared_load(node.data.sub_port[s].ifhandle);
    }
  }
  lum_controller_update_request *sent = request.release();
  std::uint32_t *sent_ifhandles = ifhandles.release();
  const cerrno rc = lum_controllers_update(sent);
  if (rc != 0) {
    LUM_ERROR(159, "controller op UPDATE for %d %d %d %d failed, rc:0x%x\n", rack, slot, instance,
              port, rc);
    request.reset(sent);
    ifhandles.reset(sent_ifhandles);
  }
  return rc;
}

// A port that is not found leaves two empty handles at the end of the batch.
cerrno lum_ots_controllers_delete(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                                  std::uint32_t count, const std::uint32_t *ports) {
  const bool countable = count <= max_ports;
  const std::uint32_t size = countable ? LUM_SUB_PORTS * count : 0;
  const c_array<std::uint16_t> types = zeroed_array<std::uint16_t>(size);
  c_array<std::uint32_t> ifhandles = zeroed_array<std::uint32_t>(size);
  c_object<lum_controller_delete_request> request = zeroed_object<lum_controller_delete_request>();
  if (!countable || !types || !ifhandles || !request) {
    if (!countable) errno = ENOMEM;
    LUM_ERROR(160, "calloc failed with errno: %d\n", errno);
    return ENOMEM;
  }
  request->count = static_cast<std::int32_t>(size);
  request->ifhandles = ifhandles.get();
  LUM_INFO(161, "controller DELETE for %d %d %d is initiated\n", rack, slot, instance);
  std::uint32_t filled = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    for (const lum_port_node_info &node : all_ports()) {
      if (!stands_at(node.data, rack, slot, instance, ports[i])) continue;
      for (std::uint32_t s = 0; s < LUM_SUB_PORTS && filled < size; ++s, ++filled) {
        types[filled] = node.data.sub_port[s].iftype;
        ifhandles[filled] = shared_load(node.data.sub_port[s].ifhandle);
      }
    }
  }
  lum_controller_delete_request *sent = request.release();
  std::uint32_t *sent_ifhandles = ifhandles.release();
  const cerrno rc = lum_controllers_delete(sent, types.get());
  if (rc != 0) {
    LUM_ERROR(162, "controller op DELETE  batch size %dfor %d %d %d failed, rc:0x%x\n", size, rack,
              slot, instance, rc);
    request.reset(sent);
    ifhandles.reset(sent_ifhandles);
  } else {
    LUM_INFO(163, "controller op DELETE  batch size %dfor %d %d %d is initiated\n", size, rack,
             slot, instance);
  }
  return rc;
}

namespace {

create_batch::create_batch(std::uint32_t controllers)
    : size(controllers), request(zeroed_object<lum_controller_create_request>()) {
  rc = ENOMEM;
  if (!request) return;
  request->count = static_cast<std::int32_t>(size);
  request->resync = shared_load(lum_get_ctx()->resync);
  request->intf_type = LUM_IFTYPE_OTS;
  entries = zeroed_array<lum_controller_create_entry>(size);
  if (!entries) return;
  names = zeroed_array<const char *>(size);
  if (!names) {
    LUM_ERROR(164, "failed to allocate memory for ifname array\n");
    return;
  }
  types = zeroed_array<std::uint16_t>(size);
  if (!types) {
    LUM_ERROR(165, "failed to allocate memory for iftype array\n");
    return;
  }
  rc = 0;
}

void create_batch::add(lum_port_data &port, std::uint32_t sub_port) {
  lum_controller_create_entry &entry = entries[filled];
  entry.id = controller_id_of(port, sub_port, 0);
  entry.id.valid = 1;
  lum_init_controller_capabilities(&entry.attrs, static_cast<std::int32_t>(sub_port));
  names[filled] = port.sub_port[sub_port].ifname;
  types[filled] = port.sub_port[sub_port].iftype;
  ++filled;
}

// The request passes to the interface manager; its completion may have freed it by the time of the
// traces.
cerrno create_batch::send() {
  request->entries = entries.release();
  const cerrno sent = lum_controllers_create(request.release(), names.get(), types.get());
  if (sent != 0) {
    LUM_ERROR(166, "controller op CREATE  batch size %dtype %d ifname %s is failed, rc:0x%x\n",
              size, types[0], names[0], sent);
  } else {
    LUM_INFO(167, "controller op CREATE  batch size %dtype %d ifname %s is initiated\n", size,
             types[0], names[0]);
  }
  return sent;
}

void create_batch::abandon() { request.release()->entries = entries.release(); }

void reset_status(lum_port_data &port) {
  static_assert(sizeof port.dom == LUM_STATUS_AREA_SIZE);
  shared_clear(port.dom, sizeof port.dom);
  LUM_INFO(168, "done for rsip = (%d %d %d %d)\n", port.rack, port.slot, port.instance, port.port);
}

// Adds both controllers of a port, reads its module's identity and restores its configuration.
// Returns the checkpoint's result.
cerrno create_port(create_batch &batch, lum_port_data &port, std::uint32_t rsip) {
  for (std::uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
    LUM_INFO(169, "controller CREATE r/s/i/p : %d/%d/%d/%d \n", port.rack, port.slot, port.instance,
             port.port);
    reset_status(port);
    batch.add(port, s);
    LUM_INFO(170, "controller CREATE type %d ifname %s is initiated\n", port.sub_port[s].iftype,
             port.sub_port[s].ifname);
  }
  lum_update_vendor_info(rsip, 1);
  const cerrno rc = lum_chkpt_create(&port);
  LUM_INFO(171, "checkpoint created for rsip: 0x%x rc %d\n", rsip, rc);
  return rc;
}

}  // namespace
