// The provisioning handler on the event manager's thread, and the entity agent's server.
#include <cerrno>
#include <cstring>

#include "base/bytes.h"
#include "base/locks.h"
#include "base/shared.h"
#include "base/trace.h"
#include "ea_server.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_server";

std::uint32_t prov_thread_init_done;
std::uint32_t lum_pending_provisioning;
std::uint32_t lum_prov_in_progress;
std::uint32_t lum_prov_pulse_sent;
pthread_mutex_t prov_lock;
std::uint32_t prov_handler_run_count;
std::uint32_t ots_async_op;

namespace {

std::uint32_t pulse_code;  // written during start-up

constexpr std::uint32_t handler_priority = 128;
constexpr cerrno start_failed = EPIPE;

enum ea_operation : std::uint32_t { resync_end = 0, create = 1, update = 2, delete_ = 4 };

cerrno attach_provisioning_handler(event_manager evm);
void provisioning_handler(event_manager, std::uint32_t, std::uint64_t);
void provision_all_ports();
void dispatch(std::uint32_t operation, const void *request, void *reply);
void serve(std::uint32_t operation, std::span<const std::uint8_t> entry, std::uint8_t *reply);

}  // namespace

cerrno lum_server_module_init(event_manager evm, std::uint32_t restart) {
  ea_server_registration registration = {};
  registration.manager = evm;
  std::strcpy(registration.name, "lum_server");
  registration.dispatch = dispatch;
  registration.connect = lum_server_trigger_replay_request_on_connect;
  registration.restart = static_cast<std::int32_t>(restart);

  make_error_checking(prov_lock);
  LUM_INFO(248, "Inside set_provisioning_handler_init\n");
  if (const cerrno rc = attach_provisioning_handler(evm); rc != 0) {
    LUM_ERROR(249, "Failed to setup req queue infra\n");
    return rc;
  }
  prov_thread_init_done = 1;
  shared_store(lum_get_ctx()->ea_replay_required_bitmap, 1);
  if (ea_server_register != nullptr) ea_server_register(&registration);
  return 0;
}

// At most one pulse is queued; a request made meanwhile is folded into the pending flag.
void lum_wakeup_provisioning_thread() {
  LUM_INFO(250, "Entering lum_wakeup_provisioning_thread\n");
  lum_prov_lock(93);
  shared_store(lum_pending_provisioning, 1);
  if (shared_load(lum_prov_pulse_sent) == 0) {
    event_send_async(lum_get_ctx()->evm, pulse_code, 0);
    shared_store(lum_prov_pulse_sent, 1);
  }
  lum_prov_unlock(99);
  LUM_INFO(251, "Exiting lum_wakeup_provisioning_thread\n");
}

void lum_prov_lock(std::int32_t line) {
  library_hold lock(prov_lock, {"lum_prov_lock", 68});
  if (lock.error() != 0) {
    LUM_ERROR(252, "prov lock failed with rc: %d line: %d\n", lock.error(), line);
  }
  lock.keep();
}

void lum_prov_unlock(std::int32_t line) {
  if (const int rc = library_lock(prov_lock).release(); rc != 0) {
    LUM_ERROR(253, "prov unlock failed with rc: %d line: %d\n", rc, line);
  }
}

void lum_mark_provisioning_needed(lum_port_data *data) {
  shared_store(data->provisioning_needed, 1);
}

void lum_clear_provisioning_needed(lum_port_data *data) {
  shared_store(data->provisioning_needed, 0);
}

void lum_set_force_reprovisioning(lum_port_data *data) {
  shared_store(data->force_reprovisioning, 1);
}

std::uint32_t lum_is_config_changed() { return 1; }

cerrno lum_process_provisioning(lum_port_data *, std::uint32_t) { return 0; }

std::uint32_t lum_check_fpd_upgrade_progress() { return 0; }

std::uint32_t lum_is_ctrlrs_up(const lum_port_data *data) {
  return shared_load(data->sub_port[0].controller_up) != 0 &&
                 shared_load(data->sub_port[1].controller_up) != 0
             ? 1
             : 0;
}

cerrno lum_port_update_state(std::uint32_t port_handle) {
  lum_device_id_td device = {};
  if (const cerrno rc = lum_ports_db_port_handle2devid(port_handle, 0, &device); rc != 0) {
    LUM_ERROR(254, "lum_port_update_state: Error rc %d\n", rc);
    return EINVAL;
  }
  return 0;
}

cerrno lum_server_trigger_replay_request_on_connect() {
  if (lum_num_ots_ctrls() != 0) {
    LUM_INFO(255, "IM-Controller-Create Done, sending Replay to all Connected Clients\n");
  }
  return 0;
}

cerrno lum_server_trigger_replay_request() {
  static_cast<void>(lum_num_ots_ctrls());
  return 0;
}

namespace {

cerrno attach_provisioning_handler(event_manager evm) {
  if (evm == 0) {
    LUM_ERROR(256, "Failed to get the EVM of main thread\n");
    return start_failed;
  }
  pulse_code = event_async_attach(evm, handler_priority, provisioning_handler, 0);
  if (pulse_code == EVENT_PULSE_NONE) {
    LUM_ERROR(257, "Failed to allocate async req pulse code\n");
    return start_failed;
  }
  return 0;
}

// A wake-up during a pass causes one more pass; its own pulse then finds nothing to do.
void provisioning_handler(event_manager, std::uint32_t, std::uint64_t) {
  LUM_INFO(258, "Entering lum_provisioning_handler\n");
  shared_store(prov_handler_run_count, shared_load(prov_handler_run_count) + 1);
  lum_prov_lock(__LINE__);
  shared_store(lum_prov_pulse_sent, 0);
  lum_prov_unlock(__LINE__);
  while (shared_load(lum_pending_provisioning) != 0) {
    lum_prov_lock(__LINE__);
    shared_store(lum_pending_provisioning, 0);
    lum_prov_unlock(__LINE__);
    shared_store(lum_prov_in_progress, 1);
    provision_all_ports();
  }
  shared_store(lum_prov_in_progress, 0);
  LUM_INFO(259, "Exiting lum_provisioning_handler\n");
}

// The port's flag is for the per-port step or the client to clear.
void provision_all_ports() {
  std::uint32_t provisioned = 0;
  for (lum_port_node_info &node : all_ports()) {
    lum_port_data &port = node.data;
    if (shared_load(port.provisioning_needed) == 0) {
      LUM_INFO(260, "Provisionig Not Needed for for rsip %d/%d/%d/%d\n", port.rack, port.slot,
               port.instance, port.port);
      continue;
    }
    ++provisioned;
    LUM_INFO(261, "Going to Provision for rsip %d/%d/%d/%d\n", port.rack, port.slot, port.instance,
             port.port);
    const cerrno rc = lum_process_provisioning(&port, shared_load(node.port_handle));
    if (rc == 0) {
      LUM_INFO(262, "Completed provisioning for rsip %d/%d/%d/%d loop_count = %d\n", port.rack,
               port.slot, port.instance, port.port, provisioned);
    } else {
      LUM_ERROR(263, "Provisioning returned Error for rsip %d/%d/%d/%d status: %d\n", port.rack,
                port.slot, port.instance, port.port, rc);
    }
  }
}

// Serves one batch of the entity agent, on whatever thread its service uses.
void dispatch(std::uint32_t operation, const void *request, void *reply) {
  const auto *bytes = static_cast<const std::uint8_t *>(request);
  const std::uint32_t count =
      request == nullptr || reply == nullptr
          ? 0
          : get<std::uint32_t>(std::span(bytes, EA_REQUEST_ENTRIES), EA_REQUEST_COUNT);
  LUM_INFO(264, "Inside Dispatch Handler, received oper-type %d and interfaces %d\n", operation,
           count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::span entry(bytes + EA_REQUEST_ENTRIES + i * EA_REQUEST_ENTRY_SIZE,
                          EA_REQUEST_ENTRY_SIZE);
    std::uint8_t *answer =
        static_cast<std::uint8_t *>(reply) + EA_REPLY_ENTRIES + i * EA_REPLY_ENTRY_SIZE;
    *answer = 1;
    serve(operation, entry, answer);
  }
  if (operation == create || operation == update) lum_wakeup_provisioning_thread();
}

void end_resync(lum_ctx &context) {
  LUM_INFO(265,
           "EA resync completed ea_replay_required_bitmap = 0x%x is_resync_with_ea_complete = %d "
           "\n",
           shared_load(context.ea_replay_required_bitmap),
           shared_load(context.is_resync_with_ea_complete));
  shared_and(context.ea_replay_required_bitmap, ~1u);
  if (shared_load(context.ea_replay_required_bitmap) == 0) {
    shared_store(context.is_resync_with_ea_complete, 1);
  }
}

void record_created(const char *ifname, std::uint32_t ifhandle) {
  LUM_INFO(266, "Create Oper: Ifhandle : 0x%x, Ifname: %s\n", ifhandle, ifname);
  if (const cerrno rc = lum_update_ifhandle(ifname, ifhandle); rc != 0) {
    LUM_ERROR(267, "failed to create dev map. intf_name %s ifhandle 0x%x rc %d\n", ifname, ifhandle,
              rc);
    return;
  }
  lum_modules_port_create(ifname, ifname);
}

void serve(std::uint32_t operation, std::span<const std::uint8_t> entry, std::uint8_t *reply) {
  const auto ifhandle = get<std::uint32_t>(entry, EA_REQUEST_ENTRY_IFHANDLE);
  if (operation == resync_end) {
    end_resync(*lum_get_ctx());
    return;
  }
  if (operation == create) {
    char ifname[LUM_IFNAME_SIZE + 1] = {};  // the agent's name may lack its NUL
    std::memcpy(ifname, entry.data() + EA_REQUEST_ENTRY_IFNAME, LUM_IFNAME_SIZE);
    record_created(ifname, ifhandle);
  } else if (operation == delete_) {
    LUM_INFO(268, "Delete Oper: Ifhandle : 0x%x\n", ifhandle);
  }
  lum_ots_ea_hdlrs(operation, entry.data(), reply);
}

}  // namespace
