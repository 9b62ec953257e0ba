// Whatever call of the platform fails in a call of the library, the first, the second and so on to
// the last: the process goes on, no lock is left held, and what is asked for next works. Each time
// in a process of its own. LUM_FAILING_CALL names one call of the library, and tells what failed.
#include <gmock/gmock.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "blocks.h"
#include "controllers.h"
#include "lum_api/lum_api.h"
#include "stated_ends.h"

namespace failing_platform_test {

using namespace support;

namespace {

constexpr uint32_t slot = 3;
constexpr uint32_t two_ports[] = {7, 8};
constexpr uint32_t port_rsip = rsip_at(slot, 0, 7);
constexpr cerrno failure = 5;
constexpr unsigned stuck_seconds = 60;

uint32_t ifh() { return 0x1001; }
lum_port_data &port() { return data_at(port_rsip); }
uint32_t handle() { return handle_for(port_rsip); }
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
};
anything &out() {
  static anything &place = *new anything;
  return place;
}

// For the completions; made before anything fails.
struct made_requests {
  lum_controller_create_request *create = nullptr;
  lum_controller_update_request *update = nullptr;
  lum_controller_delete_request *remove = nullptr;
};
made_requests &requests() {
  static made_requests made;
  return made;
}

#ifdef LUM_SANITIZED
constexpr unsigned stride = 16;  // a process is dear then
constexpr unsigned fewest = 40;
#else
constexpr unsigned stride = 1;
constexpr unsigned fewest = 300;
#endif

using operation = std::function<void()>;

// The calls of lum.h that do something on a platform, with arguments that make sense.
const std::map<std::string, operation> &operations() {
  static const auto &all = *new std::map<std::string, operation>{
      {"lum_add_device_to_ports_db",
       [] {
         const uint32_t number = 9, of_it = 99;
         lum_add_device_to_ports_db(0, slot, 0, 1, &number, &of_it);
       }},
      {"lum_chkpt_create", [] { lum_chkpt_create(&port()); }},
      {"lum_chkpt_save", [] { lum_chkpt_save(&port()); }},
      {"lum_construct_if_name",
       [] { lum_construct_if_name(LUM_IFTYPE_OTS, 0, slot, 0, 7, 0, 0, out().name); }},
      {"lum_controller_create_done", [] { lum_controller_create_done(requests().create); }},
      {"lum_controller_delete_done", [] { lum_controller_delete_done(requests().remove); }},
      {"lum_controller_update_done", [] { lum_controller_update_done(requests().update); }},
      {"lum_create_ports", create},
      {"lum_create_ports of a new one", create_new},
      {"lum_ctx_derive_hw_nodeid", [] { lum_ctx_derive_hw_nodeid(0, slot, 0); }},
      {"lum_deinit_port", [] { lum_deinit_port(0, slot, 0, 2, two_ports); }},
      {"lum_del_device_from_ports_db", [] { lum_del_device_from_ports_db(0, slot, 0, 1); }},
      {"lum_delete_ports", [] { lum_delete_ports(0, slot, 0, 2, two_ports); }},
      {"lum_fill_initial_hw_info", [] { lum_fill_initial_hw_info(0, slot, 0, 2, two_ports); }},
      {"lum_get_hw_info", [] { get(lum_get_hw_info); }},
      {"lum_get_hw_info_by_ifh", [] { get(lum_get_hw_info_by_ifh); }},
      {"lum_get_ifname_from_ctx", [] { lum_get_ifname_from_ctx(ifh(), out().name); }},
      {"lum_get_intfname_for_port",
       [] { lum_get_intfname_for_port(0, slot, 0, 7, 0, out().name); }},
      {"lum_get_port_info", [] { lum_get_port_info(ifname(), &out().data); }},
      {"lum_get_port_node_from_port_handle", [] { lum_get_port_node_from_port_handle(handle()); }},
      {"lum_get_port_node_from_rsip", [] { lum_get_port_node_from_rsip(port_rsip); }},
      {"lum_get_s_dev_info", [] { lum_get_s_dev_info(ifh(), &out().data, &out().device); }},
      {"lum_i2c_read_write",
       [] {
         static uint8_t bytes[600];
         lum_i2c_read_write(1, slot, 0, 7, 0, 128, sizeof bytes, bytes);
         lum_i2c_read_write(1, slot, 0, 7, 0, 128, 1, bytes);
         lum_i2c_read_write(0, slot, 0, 7, 0, 128, 1, bytes);
       }},
      {"lum_lib_clear_stats",
       [] {
         const uint32_t handles[] = {ifh()};
         lum_lib_clear_stats(1, handles);
       }},
      {"lum_module_sweep_hw_status", [] { lum_module_sweep_hw_status(0, 0, slot, 0, 7); }},
      {"lum_module_unavailable", [] { lum_module_unavailable(0, slot, 0, 2, two_ports); }},
      {"lum_modules_port_create", [] { lum_modules_port_create(ifname(), nullptr); }},
      {"lum_modules_port_delete", [] { lum_modules_port_delete(ifname()); }},
      {"lum_optics_get_fw_upgrd_status",
       [] { lum_optics_get_fw_upgrd_status(port_rsip, &out().word); }},
      {"lum_optics_led_get_state", [] { lum_optics_led_get_state(port_rsip, 0, &out().word); }},
      {"lum_optics_led_set_state", [] { lum_optics_led_set_state(port_rsip, 0, LUM_LED_FAULT); }},
      {"lum_ots_controllers_create", [] { lum_ots_controllers_create(0, slot, 0, 2, two_ports); }},
      {"lum_ots_controllers_delete", [] { lum_ots_controllers_delete(0, slot, 0, 2, two_ports); }},
      {"lum_ots_controllers_update", [] { lum_ots_controllers_update(0, slot, 0, 7, 1); }},
      {"lum_ots_test_alarms_pm", [] { lum_ots_test_alarms_pm(nullptr, "x#Ots0_3_0_7_0#1#0#1"); }},
      {"lum_parse_if_name",
       [] {
         lum_parse_if_name(ifname(), &out().word, nullptr, nullptr, nullptr, nullptr, nullptr,
                           nullptr);
       }},
      {"lum_plat_deinit", [] { lum_plat_deinit(0, 5, 0); }},
      {"lum_plat_init",
       [] {
         const lum_slot_props props = {1, 4};
         lum_plat_init(0, 5, 0, &props);
       }},
      {"lum_plat_set_sdev_ctx", [] { lum_plat_set_sdev_ctx(slot, 0, handle(), 1); }},
      {"lum_platform_ctx_init",
       [] {
         const uint32_t number = 9;
         lum_platform_ctx_init(0, slot, 0, 1, &number);
       }},
      {"lum_platform_ports_deinit", [] { lum_platform_ports_deinit(0, slot, 0, 7); }},
      {"lum_pm_alarm_test_init", [] { lum_pm_alarm_test_init(client_manager, 1); }},
      {"lum_pm_alarm_test_cleanup", [] { lum_pm_alarm_test_cleanup(1); }},
      {"lum_pm_ptah_port_op",
       [] {
         lum_pm_ptah_port_op(1, controller(port_rsip, 0, 0x77));
         lum_pm_ptah_port_op(0, controller(port_rsip, 0, 0x77));
       }},
      {"lum_port_chkpt_delete", [] { lum_port_chkpt_delete(&port()); }},
      {"lum_port_chkpt_recover", [] { lum_port_chkpt_recover(lum_get_ctx()); }},
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
       [] { lum_ports_db_get_rsip_from_ifh(ifh(), &out().word); }},
      {"lum_ports_db_ifh2devid", [] { lum_ports_db_ifh2devid(ifh(), &out().device); }},
      {"lum_ports_db_ifname2devid", [] { lum_ports_db_ifname2devid(ifname(), &out().device); }},
      {"lum_ports_db_port_handle2devid",
       [] { lum_ports_db_port_handle2devid(handle(), 0, &out().device); }},
      {"lum_ports_db_port_handle2rsip",
       [] { lum_ports_db_port_handle2rsip(handle(), &out().word); }},
      {"lum_ports_db_remove_entry", [] { lum_ports_db_remove_entry(rsip_at(slot, 0, 8)); }},
      {"lum_ports_db_rsip2port_handle",
       [] { lum_ports_db_rsip2port_handle(port_rsip, &out().word); }},
      {"lum_ports_db_update_entry", [] { lum_ports_db_update_entry(port_rsip, handle()); }},
      {"lum_print_hex_buffer_to_trace",
       [] {
         const uint8_t bytes[32] = {};
         lum_print_hex_buffer_to_trace(bytes, sizeof bytes);
       }},
      {"lum_provision_port_cfg_data",
       [] { lum_provision_port_cfg_data(0, &port(), LUM_CHANGE_THRESHOLD | LUM_CHANGE_MODE); }},
      {"lum_replay_controllers", [] { lum_replay_controllers(); }},
      {"lum_replay_ots_controllers", [] { lum_replay_ots_controllers(); }},
      {"lum_resync_with_ea", lum_resync_with_ea},
      {"lum_safely_get_devinfo", [] { lum_safely_get_devinfo(handle(), 0, &out().device); }},
      {"lum_safely_get_ifhandle", [] { lum_safely_get_ifhandle(handle(), 0, &out().word); }},
      {"lum_safely_get_port_info", [] { lum_safely_get_port_info(ifname(), &out().data); }},
      {"lum_safely_get_rsip", [] { lum_safely_get_rsip(handle(), &out().word); }},
      {"lum_server_trigger_replay_request", [] { lum_server_trigger_replay_request(); }},
      {"lum_set_controller_ready_info",
       [] {
         const uint32_t handles[] = {ifh()};
         char names[1][LUM_IFNAME_SIZE] = {};
         std::strcpy(names[0], ifname());
         lum_set_controller_ready_info(1, handles, names);
       }},
      {"lum_set_hw_info", [] { set(lum_set_hw_info); }},
      {"lum_set_hw_info_by_ifh", [] { set(lum_set_hw_info_by_ifh); }},
      {"lum_slot_properties_init",
       [] {
         const lum_slot_props props = {1, 4};
         lum_slot_properties_init(5, 0, &props);
       }},
      {"lum_update_ifhandle", [] { lum_update_ifhandle(ifname(), ifh()); }},
      {"lum_update_pm_ptah_data", [] { lum_update_pm_ptah_data(ifh()); }},
      {"lum_update_port", [] { lum_update_port(0, slot, 0, 7, 1); }},
      {"lum_update_vendor_info", [] { lum_update_vendor_info(port_rsip, 1); }},
      {"lum_update_vendor_info of a removal", [] { lum_update_vendor_info(port_rsip, 0); }},
      {"lum_wakeup_provisioning_thread",
       [] {
         lum_mark_provisioning_needed(&port());
         lum_wakeup_provisioning_thread();
       }},
  };
  return all;
}

bool is_free(pthread_mutex_t &mutex) {
  if (pthread_mutex_trylock(&mutex) != 0) return false;
  pthread_mutex_unlock(&mutex);
  return true;
}

// Ports whose deletion or creation was not to be come when they are asked for again.
bool comes_back() {
  set_controller_count(8);
  for (int attempt = 0; attempt < 3; ++attempt) {
    lum_replay_controllers();
    im.answer_all();
    lum_delete_ports(0, slot, 0, 2, two_ports);
    im.answer_all();
    const lum_slot_props props = {1, 4};
    lum_plat_init(0, slot, 0, &props);
    for (const uint32_t number : two_ports) {
      const auto one = props_of({rsip_at(slot, 0, number)});
      lum_create_ports(1, one.data());
    }
    im.answer_all();
  }
  for (const uint32_t number : two_ports) {
    const lum_port_node_info *node = lum_get_port_node_from_rsip(rsip_at(slot, 0, number));
    if (node == nullptr || node->data.is_dom_enabled == 0) return false;
    for (const lum_sub_port_intf &interface : node->data.sub_port) {
      if (interface.created != 1 || interface.ifhandle == 0) return false;
    }
    if (lum_provision_port_cfg_data(0, &data_at(rsip_at(slot, 0, number)), LUM_CHANGE_THRESHOLD) !=
        0) {
      return false;
    }
  }
  return true;
}

enum ending { went_well = 0, not_met = 1, lock_held = 2, does_not_come_back = 3 };

ending try_one(const operation &operate, unsigned nth) {
  requests().create = create_request({controller(port_rsip, 0, ifh())});
  requests().update = update_request({ifh()});
  requests().remove = delete_request({ifh(), ifh() + 1});
  script.fail_any(nth, failure);
  operate();
  im.answer_all();
  events.run_pulses();
  const bool met = script.calls_of_any() >= nth;
  script.forget();
  if (!met) return not_met;
  std::fprintf(stderr, "%s failed\n", script.failed_of_any().c_str());
  if (!is_free(lum_platform.mutex) || !is_free(prov_lock) || !is_free(lum::serial_mutex)) {
    return lock_held;
  }
  return comes_back() ? went_well : does_not_come_back;
}

// How the process of a failure ended; a code below 0 is a signal.
int in_process(const std::function<ending()> &what, std::string &said) {
  int ends[2];
  if (pipe(ends) != 0) return -1;
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDERR_FILENO);
    alarm(stuck_seconds);
    _exit(what());
  }
  close(ends[1]);
  char bytes[512];
  said.clear();
  for (ssize_t got = read(ends[0], bytes, sizeof bytes); got > 0;
       got = read(ends[0], bytes, sizeof bytes)) {
    said.append(bytes, static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class failing_platform : public created_ports {};

}  // namespace

TEST_F(failing_platform, whatever_call_of_it_fails_the_next_ones_work) {
  unsigned tried = 0, survived = 0, fatal = 0;
  const char *only = std::getenv("LUM_FAILING_CALL");
  for (const auto &[name, operate] : operations()) {
    if (only != nullptr && name != only) continue;
    for (unsigned nth = 1; nth < 100000; nth += stride) {
      std::string said;
      const int ended = in_process([&, &call = operate] { return try_one(call, nth); }, said);
      if (ended == not_met) break;
      ++tried;
      const bool is_fatal = ended == -SIGABRT && is_stated_end(said);
      fatal += is_fatal ? 1 : 0;
      if (ended == went_well || is_fatal) {
        ++survived;
        if (only != nullptr) std::printf("%s, call %u: %s", name.c_str(), nth, said.c_str());
        continue;
      }
      ADD_FAILURE() << name << ", call " << nth << ": " << ended << " " << said;
      break;
    }
  }
  std::printf(
      "%zu calls of the library, %u failures of the platform: %u survived, of which %u "
      "ended as stated\n",
      operations().size(), tried, survived, fatal);
  EXPECT_EQ(survived, tried);
  EXPECT_TRUE(only != nullptr || tried > fewest) << tried;
}

}  // namespace failing_platform_test
