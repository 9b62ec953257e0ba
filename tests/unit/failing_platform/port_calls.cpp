// Calls that create, delete, poll and set ports, and what their batches lead to.
#include <cstring>
#include <vector>

#include "calls.h"
#include "controllers.h"
#include "ea_server.h"
#include "made.h"

namespace failing_platform {

using namespace support;

namespace {

constexpr cerrno failed = 31;

uint32_t ifh() { return 0x1001; }
const char *ifname() { return "Ots0_3_0_7_0"; }

void set(cerrno (*call)(int32_t, const uint32_t *, const lum_hw_info_in *, const uint64_t *)) {
  static lum_hw_info_in record = {};
  const uint32_t handles[] = {ifh()};
  const uint64_t changed[] = {LUM_CHANGE_THRESHOLD | LUM_CHANGE_SETTINGS | LUM_CHANGE_MODE};
  call(1, handles, &record, changed);
}

void get(cerrno (*call)(int32_t, const uint32_t *, lum_hw_info_out *)) {
  static lum_hw_info_out record;
  const uint32_t handles[] = {ifh()};
  call(1, handles, &record);
}

void create() {
  const auto props = props_of({rsip_at(slot, 0, 7), rsip_at(slot, 0, 8)});
  lum_create_ports(static_cast<uint32_t>(props.size()), props.data());
}

void create_new() {
  const auto props = props_of({rsip_at(slot, 0, 9)});
  lum_create_ports(1, props.data());
}

void complete_creation(cerrno result) {
  const std::vector<uint8_t> &data = made().create_reply;
  uint32_t ifhandle = 0;
  const char *const name = result == 0 ? ifname() : "no name";
  const auto size = static_cast<uint32_t>(data.size());
  const uint8_t *const bytes = data.data();
  imca_reply_info_type reply = {0, 0, 1, &ifhandle, &result, &name, &size, &bytes};
  lum_im_create_complete_resp_cb(&reply, made().create);
}

void serve_entity_agent() {
  static uint8_t request[EA_REQUEST_ENTRIES + EA_REQUEST_ENTRY_SIZE] = {};
  static uint8_t reply[EA_REPLY_ENTRIES + EA_REPLY_ENTRY_SIZE] = {};
  put_number(request, EA_REQUEST_COUNT, sizeof(uint32_t), 1);
  std::strcpy(reinterpret_cast<char *>(request + EA_REQUEST_ENTRIES), ifname());
  put_number(request, EA_REQUEST_ENTRIES + EA_REQUEST_ENTRY_IFHANDLE, sizeof(uint32_t), ifh());
  constexpr uint32_t create_operation = 1;
  events.entity_agent.dispatch(create_operation, request, reply);
}

}  // namespace

const call_table &port_calls() {
  static const auto &all = *new call_table{
      {"(one cycle of the polling thread)", [] { polling.run_cycle(); }},
      {"(the entity agent's batch)", serve_entity_agent},
      {"lum_add_device_to_ports_db",
       [] {
         const uint32_t number = 9, of_it = 99;
         lum_add_device_to_ports_db(0, slot, 0, 1, &number, &of_it);
       }},
      {"lum_chkpt_create", [] { lum_chkpt_create(made().port); }},
      {"lum_chkpt_save", [] { lum_chkpt_save(made().port); }},
      {"lum_controller_create_done", [] { lum_controller_create_done(made().create); }},
      {"lum_controller_delete_done", [] { lum_controller_delete_done(made().remove); }},
      {"lum_controller_update_done", [] { lum_controller_update_done(made().update); }},
      {"lum_controllers_create",
       [] {
         const char *const names[] = {"Ots0_3_0_7_0"};
         const uint16_t types[] = {LUM_IFTYPE_OTS};
         lum_controllers_create(made().create, names, types);
       }},
      {"lum_controllers_delete",
       [] {
         const uint16_t types[] = {LUM_IFTYPE_OTS, LUM_IFTYPE_OTS};
         lum_controllers_delete(made().remove, types);
       }},
      {"lum_controllers_update", [] { lum_controllers_update(made().update); }},
      {"lum_create_ports", create},
      {"lum_create_ports of a new one", create_new},
      {"lum_deinit_port", [] { lum_deinit_port(0, slot, 0, 2, two_ports); }},
      {"lum_del_device_from_ports_db", [] { lum_del_device_from_ports_db(0, slot, 0, 1); }},
      {"lum_delete_ports", [] { lum_delete_ports(0, slot, 0, 2, two_ports); }},
      {"lum_fill_initial_hw_info", [] { lum_fill_initial_hw_info(0, slot, 0, 2, two_ports); }},
      {"lum_get_hw_info", [] { get(lum_get_hw_info); }},
      {"lum_get_hw_info_by_ifh", [] { get(lum_get_hw_info_by_ifh); }},
      {"lum_im_create_complete_resp_cb", [] { complete_creation(0); }},
      {"lum_im_create_complete_resp_cb of a failed element", [] { complete_creation(failed); }},
      {"lum_im_delete_complete_resp_cb",
       [] { lum_im_delete_complete_resp_cb(nullptr, made().remove); }},
      {"lum_im_update_complete_resp_cb",
       [] { lum_im_update_complete_resp_cb(nullptr, made().update); }},
      {"lum_lib_clear_stats",
       [] {
         const uint32_t handles[] = {ifh()};
         lum_lib_clear_stats(1, handles);
       }},
      {"lum_module_sweep_hw_status", [] { lum_module_sweep_hw_status(0, 0, slot, 0, 7); }},
      {"lum_module_unavailable", [] { lum_module_unavailable(0, slot, 0, 2, two_ports); }},
      {"lum_modules_port_create", [] { lum_modules_port_create(ifname(), nullptr); }},
      {"lum_modules_port_delete", [] { lum_modules_port_delete(ifname()); }},
      {"lum_ots_controllers_create", [] { lum_ots_controllers_create(0, slot, 0, 2, two_ports); }},
      {"lum_ots_controllers_delete", [] { lum_ots_controllers_delete(0, slot, 0, 2, two_ports); }},
      {"lum_ots_controllers_update", [] { lum_ots_controllers_update(0, slot, 0, 7, 1); }},
      {"lum_platform_ctx_init",
       [] {
         const uint32_t number = 9;
         lum_platform_ctx_init(0, slot, 0, 1, &number);
       }},
      {"lum_platform_ports_deinit", [] { lum_platform_ports_deinit(0, slot, 0, 7); }},
      {"lum_pm_ptah_port_op",
       [] {
         lum_pm_ptah_port_op(1, controller(port_rsip, 0, 0x77));
         lum_pm_ptah_port_op(0, controller(port_rsip, 0, 0x77));
       }},
      {"lum_port_chkpt_delete", [] { lum_port_chkpt_delete(made().port); }},
      {"lum_port_chkpt_recover", [] { lum_port_chkpt_recover(lum_get_ctx()); }},
      {"lum_provision_port_cfg_data",
       [] { lum_provision_port_cfg_data(0, made().port, LUM_CHANGE_THRESHOLD | LUM_CHANGE_MODE); }},
      {"lum_replay_controllers", [] { lum_replay_controllers(); }},
      {"lum_replay_ots_controllers", [] { lum_replay_ots_controllers(); }},
      {"lum_set_controller_ready_info",
       [] {
         const uint32_t handles[] = {ifh()};
         char names[1][LUM_IFNAME_SIZE] = {};
         std::strcpy(names[0], ifname());
         lum_set_controller_ready_info(1, handles, names);
       }},
      {"lum_set_hw_info", [] { set(lum_set_hw_info); }},
      {"lum_set_hw_info_by_ifh", [] { set(lum_set_hw_info_by_ifh); }},
      {"lum_update_ifhandle", [] { lum_update_ifhandle(ifname(), ifh()); }},
      {"lum_update_pm_ptah_data", [] { lum_update_pm_ptah_data(ifh()); }},
      {"lum_update_port", [] { lum_update_port(0, slot, 0, 7, 1); }},
      {"lum_update_vendor_info", [] { lum_update_vendor_info(port_rsip, 1); }},
      {"lum_update_vendor_info of a removal", [] { lum_update_vendor_info(port_rsip, 0); }},
      {"lum_wakeup_provisioning_thread",
       [] {
         lum_mark_provisioning_needed(made().port);
         lum_wakeup_provisioning_thread();
       }},
  };
  return all;
}

made_before &made() {
  static made_before &all = *new made_before;
  return all;
}

void prepare_calls() {
  made().create = create_request({controller(port_rsip, 0, ifh())});
  made().update = update_request({ifh()});
  made().remove = delete_request({ifh(), ifh() + 1});
  made().port = &data_at(port_rsip);
  made().create_reply = good_reply(ifh());
}

}  // namespace failing_platform
