// The server's start-up, and what it answers to the client.
#include <cerrno>
#include <cstring>

#include "base/locks.h"
#include "base/shared.h"
#include "base/trace.h"
#include "ea_server.h"
#include "lum_server/lum_server.h"

using namespace lum;

static constexpr char trace_area[] = "lum_server";

std::uint32_t prov_thread_init_done;
std::uint32_t ots_async_op;
std::uint32_t lum::provisioning_pulse;

static cerrno attach_provisioning_handler(event_manager evm);

cerrno lum_server_module_init(event_manager evm, std::uint32_t restart) {
  ea_server_registration registration = {};
  registration.manager = evm;
  std::strcpy(registration.name, "lum_server");
  registration.dispatch = dispatch_ea_batch;
  registration.connect = lum_server_trigger_replay_request_on_connect;
  registration.restart = static_cast<std::int32_t>(restart);

  make_error_checking(prov_lock);
  LUM_INFO(248, "Inside set_provisioning_handler_init\n");
  if (const cerrno rc = attach_provisioning_handler(evm); rc != 0) {
    LUM_ERROR(249, "Failed to setup req queue infra\n");
    return rc;
  }
  shared_store(prov_thread_init_done, 1);
  shared_store(lum_get_ctx()->ea_replay_required_bitmap, 1);
  if (ea_server_register != nullptr) ea_server_register(&registration);
  return 0;
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

static cerrno attach_provisioning_handler(event_manager evm) {
  constexpr cerrno start_failed = EPIPE;
  constexpr std::uint32_t handler_priority = 128;
  if (evm == 0) {
    LUM_ERROR(256, "Failed to get the EVM of main thread\n");
    return start_failed;
  }
  provisioning_pulse = event_async_attach(evm, handler_priority, provisioning_handler, 0);
  if (provisioning_pulse == EVENT_PULSE_NONE) {
    LUM_ERROR(257, "Failed to allocate async req pulse code\n");
    return start_failed;
  }
  return 0;
}
