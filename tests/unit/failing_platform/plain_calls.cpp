// Calls that look up, name, mark, count and trace, and those on slots and single services.
#include <cstring>

#include "calls.h"
#include "controllers.h"
#include "ea_server.h"
#include "made.h"

namespace failing_platform {

using namespace support;

namespace {

uint32_t known_ifh() { return 0x1001; }
uint32_t handle() { return handle_for(port_rsip); }
const char *known_name() { return "Ots0_3_0_7_0"; }

lum_port_data new_port() {
  lum_port_data data = {};
  data.slot = slot;
  data.port = 9;
  return data;
}

struct anything {
  uint32_t word = 0, more[6] = {};
  char name[256] = {};
  lum_device_id_td device = {};
  lum_port_data *data = nullptr;
  lum_controller_attrs attrs = {};
};
anything &out() {
  static anything &place = *new anything;
  return place;
}

void take_and_release_prov_lock() {
  lum_prov_lock(1);
  lum_prov_unlock(2);
}

void take_and_release_serial_lock() {
  lum_serial_lock(1, "failing_platform");
  lum_serial_unlock(2, "failing_platform");
}

}  // namespace

const call_table &plain_calls() {
  static const auto &all = *new call_table{
      {"lum_change_rp_role", lum_change_rp_role},
      {"lum_check_fpd_upgrade_progress", [] { lum_check_fpd_upgrade_progress(); }},
      {"lum_clear_provisioning_needed", [] { lum_clear_provisioning_needed(made().port); }},
      {"lum_close_ctrace", [] { lum_close_ctrace(); }},
      {"lum_construct_if_name",
       [] { lum_construct_if_name(LUM_IFTYPE_OTS, 0, slot, 0, 7, 0, 0, out().name); }},
      {"lum_controller_attrs_clear", [] { lum_controller_attrs_clear(&out().attrs); }},
      {"lum_controller_attrs_copy",
       [] {
         const lum_controller_attrs source = {};
         lum_controller_attrs_copy(&source, &out().attrs);
       }},
      {"lum_ctx_derive_hw_nodeid", [] { lum_ctx_derive_hw_nodeid(0, slot, 0); }},
      {"lum_dec_ots_cntrs", [] { lum_dec_ots_cntrs(1); }},
      {"lum_delete_pm_ports", lum_delete_pm_ports},
      {"lum_get_ctx", [] { lum_get_ctx(); }},
      {"lum_get_final_sw_led_state",
       [] { lum_get_final_sw_led_state(LUM_LED_FAULT, LUM_LED_NORMAL, &out().word); }},
      {"lum_get_ifname_from_ctx", [] { lum_get_ifname_from_ctx(known_ifh(), out().name); }},
      {"lum_get_intfname_for_port",
       [] { lum_get_intfname_for_port(0, slot, 0, 7, 0, out().name); }},
      {"lum_get_port_info", [] { lum_get_port_info(known_name(), &out().data); }},
      {"lum_get_port_node_from_port_handle", [] { lum_get_port_node_from_port_handle(handle()); }},
      {"lum_get_port_node_from_rsip", [] { lum_get_port_node_from_rsip(port_rsip); }},
      {"lum_get_s_dev_info", [] { lum_get_s_dev_info(known_ifh(), &out().data, &out().device); }},
      {"lum_i2c_read_write",
       [] {
         static uint8_t bytes[600];
         lum_i2c_read_write(1, slot, 0, 7, 0, 128, sizeof bytes, bytes);
         lum_i2c_read_write(1, slot, 0, 7, 0, 128, 1, bytes);
         lum_i2c_read_write(0, slot, 0, 7, 0, 128, 1, bytes);
       }},
      {"lum_inc_ots_cntrs", [] { lum_inc_ots_cntrs(1); }},
      {"lum_init_controller_capabilities",
       [] { lum_init_controller_capabilities(&out().attrs, 1); }},
      {"lum_intf_state_to_string", [] { lum_intf_state_to_string(1); }},
      {"lum_is_config_changed", [] { lum_is_config_changed(); }},
      {"lum_is_ctrlrs_up", [] { lum_is_ctrlrs_up(made().port); }},
      {"lum_mark_provisioning_needed", [] { lum_mark_provisioning_needed(made().port); }},
      {"lum_module_get_hw_status", [] { lum_module_get_hw_status(); }},
      {"lum_num_ots_ctrls", [] { lum_num_ots_ctrls(); }},
      {"lum_optics_get_fw_upgrd_status",
       [] { lum_optics_get_fw_upgrd_status(port_rsip, &out().word); }},
      {"lum_optics_led_get_state", [] { lum_optics_led_get_state(port_rsip, 0, &out().word); }},
      {"lum_optics_led_set_state", [] { lum_optics_led_set_state(port_rsip, 0, LUM_LED_FAULT); }},
      {"lum_ots_ea_hdlrs",
       [] {
         static const uint8_t entry[EA_REQUEST_ENTRY_SIZE] = {};
         lum_ots_ea_hdlrs(1, entry, nullptr);
       }},
      {"lum_ots_fill_hw_info", [] { lum_ots_fill_hw_info(); }},
      {"lum_ots_handle_admin_update", [] { lum_ots_handle_admin_update(); }},
      {"lum_ots_test_alarms_pm", [] { lum_ots_test_alarms_pm(nullptr, "x#Ots0_3_0_7_0#1#0#1"); }},
      {"lum_parse_if_name",
       [] {
         lum_parse_if_name(known_name(), &out().word, nullptr, nullptr, nullptr, nullptr, nullptr,
                           nullptr);
       }},
      {"lum_plat_deinit", [] { lum_plat_deinit(0, 5, 0); }},
      {"lum_plat_get_port_handle", [] { lum_plat_get_port_handle(slot, 0, 7); }},
      {"lum_plat_get_sdev_ctx", [] { lum_plat_get_sdev_ctx(slot, 0, handle()); }},
      {"lum_plat_init",
       [] {
         const lum_slot_props props = {1, 4};
         lum_plat_init(0, 5, 0, &props);
       }},
      {"lum_plat_is_instance_used", [] { lum_plat_is_instance_used(slot); }},
      {"lum_plat_is_optics_inserted", [] { lum_plat_is_optics_inserted(slot, 0, 7); }},
      {"lum_plat_is_slot_used", [] { lum_plat_is_slot_used(slot); }},
      {"lum_plat_num_port_info", [] { lum_plat_num_port_info(slot, 0); }},
      {"lum_plat_port_idx", [] { lum_plat_port_idx(slot, 0, 0); }},
      {"lum_plat_set_sdev_ctx", [] { lum_plat_set_sdev_ctx(slot, 0, handle(), 1); }},
      {"lum_pm_alarm_test_cleanup", [] { lum_pm_alarm_test_cleanup(1); }},
      {"lum_pm_alarm_test_init", [] { lum_pm_alarm_test_init(client_manager, 1); }},
      {"lum_port_properties_deinit", [] { lum_port_properties_deinit(slot, 0, 7); }},
      {"lum_port_properties_init",
       [] {
         const auto props = props_of({rsip_at(slot, 0, 9)});
         lum_port_properties_init(slot, 0, 1, props.data());
       }},
      {"lum_port_update_state", [] { lum_port_update_state(handle()); }},
      {"lum_ports_db_add_entry",
       [] {
         const lum_port_data data = new_port();
         lum_ports_db_add_entry(rsip_at(slot, 0, 9), &data);
       }},
      {"lum_ports_db_find_entry", [] { lum_ports_db_find_entry(port_rsip); }},
      {"lum_ports_db_get_rsip_from_ifh",
       [] { lum_ports_db_get_rsip_from_ifh(known_ifh(), &out().word); }},
      {"lum_ports_db_ifh2devid", [] { lum_ports_db_ifh2devid(known_ifh(), &out().device); }},
      {"lum_ports_db_ifname2devid", [] { lum_ports_db_ifname2devid(known_name(), &out().device); }},
      {"lum_ports_db_port_handle2devid",
       [] { lum_ports_db_port_handle2devid(handle(), 0, &out().device); }},
      {"lum_ports_db_port_handle2rsip",
       [] { lum_ports_db_port_handle2rsip(handle(), &out().word); }},
      {"lum_ports_db_remove_entry", [] { lum_ports_db_remove_entry(rsip_at(slot, 0, 8)); }},
      {"lum_ports_db_rsip2port_handle",
       [] { lum_ports_db_rsip2port_handle(port_rsip, &out().word); }},
      {"lum_ports_db_update_entry", [] { lum_ports_db_update_entry(port_rsip, handle()); }},
      {"lum_ports_db_walk_via_rsip",
       [] { lum_ports_db_walk_via_rsip([](void *, void *) { return 0; }, nullptr); }},
      {"lum_print_hex_buffer_to_trace",
       [] {
         const uint8_t bytes[32] = {};
         lum_print_hex_buffer_to_trace(bytes, sizeof bytes);
       }},
      {"lum_process_provisioning", [] { lum_process_provisioning(made().port, handle()); }},
      {"lum_prov_lock", take_and_release_prov_lock},
      {"lum_prov_unlock", take_and_release_prov_lock},
      {"lum_resync_with_ea", lum_resync_with_ea},
      {"lum_safely_get_devinfo", [] { lum_safely_get_devinfo(handle(), 0, &out().device); }},
      {"lum_safely_get_ifhandle", [] { lum_safely_get_ifhandle(handle(), 0, &out().word); }},
      {"lum_safely_get_port_info", [] { lum_safely_get_port_info(known_name(), &out().data); }},
      {"lum_safely_get_rsip", [] { lum_safely_get_rsip(handle(), &out().word); }},
      {"lum_serial_lock", take_and_release_serial_lock},
      {"lum_serial_unlock", take_and_release_serial_lock},
      {"lum_server_trigger_replay_request", [] { lum_server_trigger_replay_request(); }},
      {"lum_server_trigger_replay_request_on_connect",
       [] { lum_server_trigger_replay_request_on_connect(); }},
      {"lum_set_force_reprovisioning", [] { lum_set_force_reprovisioning(made().port); }},
      {"lum_slot_properties_deinit", [] { lum_slot_properties_deinit(slot, 0); }},
      {"lum_slot_properties_init",
       [] {
         const lum_slot_props props = {1, 4};
         lum_slot_properties_init(5, 0, &props);
       }},
      {"lum_trim_trailing_spaces",
       [] {
         char text[] = "text  ";
         lum_trim_trailing_spaces(text, static_cast<int32_t>(sizeof text) - 1);
       }},
  };
  return all;
}

}  // namespace failing_platform
