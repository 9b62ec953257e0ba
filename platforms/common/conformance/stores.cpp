// Performance monitoring, alarms, test events and the entity agent: pm_ui.h, ptah.h, test_event.h,
// ea_server.h.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <thread>

#include "check.h"
#include "ea_server.h"
#include "pm_ui.h"
#include "ptah.h"
#include "test_event.h"

namespace conformance {
namespace {

constexpr uint32_t one = 0x08000101, other = 0x08000102;  // interface handles

void pm_knows_its_ports() {
  start_platform();
  require(pm_ui_db_search_node(one) == nullptr, "a port is found that was not created");
  require(pm_ui_port_create(LUM_IFTYPE_OTS, one, "Ots0_1_0_1_0") == 0, "no port is created");
  require(pm_ui_db_search_node(one) != nullptr, "the port is not found");
  require(pm_ui_db_search_node(other) == nullptr, "another interface's port is found");
  pm_ui_optics_record record = {};
  record.power_0 = 5128;
  pm_ui_set_optics_prim(one, &record, 1, 0);
  require(pm_ui_port_delete(one) == 0, "the port is not deleted");
  require(pm_ui_db_search_node(one) == nullptr, "the port is found after its deletion");
  require(pm_ui_port_create(LUM_IFTYPE_OTS, one, "Ots0_1_0_1_0") == 0, "it cannot come again");
}

void create_alarm_port(uint32_t ifhandle, const char *name) {
  uint64_t handle = 0;
  const cerrno rc = ptah_al_port_create(LUM_IFTYPE_OTS, ifhandle, name, 0, 1, &handle);
  require(rc == 0, "the alarm port %s is not created: %u", name, rc);
}

void every_interface_has_alarms_of_its_own() {
  start_platform();
  create_alarm_port(one, "Ots0_1_0_1_0");
  create_alarm_port(other, "Ots0_1_0_1_1");
  require(ptah_al_store_bmap(one, 0x21, 1) == 0, "alarms cannot be stored");
  require(ptah_al_store_bmap(other, 0x8, 1) == 0, "the other interface's alarms are refused");
  require(ptah_al_send_bmap_counter(one) == 0, "alarms cannot be published");
  ptah_al_all all = {};
  require(ptah_al_get_all_from_ptah(one, &all) == 0, "what is kept cannot be had");
  require(all.bitmap == 0x21, "alarms 0x21 became 0x%x", static_cast<uint32_t>(all.bitmap));
  require(ptah_al_get_all_from_ptah(other, &all) == 0 && all.bitmap == 0x8,
          "the other interface's alarms 0x8 became 0x%x", static_cast<uint32_t>(all.bitmap));
  require(ptah_al_port_clear_stats(one) == 0, "the statistics cannot be set back");
}

void what_is_not_kept_is_not_given() {
  start_platform();
  ptah_al_all all;
  std::memset(&all, 0xA5, sizeof all);
  const ptah_al_all before = all;
  require(ptah_al_get_all_from_ptah(one, &all) != 0, "alarms of an unknown interface are given");
  const bool is_as_before =
      all.bitmap == before.bitmap &&
      std::equal(std::begin(all.values), std::end(all.values), std::begin(before.values));
  require(is_as_before, "the record is changed all the same");
  create_alarm_port(one, "Ots0_1_0_1_0");
  require(ptah_al_port_delete(one) == 0, "the alarm port is not deleted");
  require(ptah_al_get_all_from_ptah(one, &all) != 0, "alarms of a deleted interface are given");
}

std::atomic<uint32_t> unasked{0};
void count_test(void *, const char *) { ++unasked; }

void a_test_is_not_made_unasked() {
  const event_manager manager = start_platform().evm;
  static const test_event_record records[] = {{100, count_test}};
  test_event_init_tests_v2("conformance", 0, manager, records, 1);
  std::this_thread::sleep_for(settling_time);
  test_event_close_tests("conformance");
  test_event_close_tests("conformance");
  require(unasked == 0, "a test handler is called that nobody asked for");
}

cerrno no_connection() { return 0; }
std::atomic<uint32_t> early{0};
void no_batch(uint32_t, const void *, void *) { ++early; }

void a_server_is_not_asked_before_it_is_registered() {
  const event_manager manager = start_platform().evm;
  if (ea_server_register == nullptr) throw no_case{"there is no entity agent"};
  ea_server_registration server = {manager, "lum_server", no_batch, no_connection, 0};
  require(ea_server_register(&server) == 0, "the server is refused");
  require(early == 0, "a batch comes before the registration has returned");
}

}  // namespace

std::vector<check> store_checks() {
  return {{"performance.knows_its_ports", pm_knows_its_ports},
          {"alarms.are_kept_for_each_interface", every_interface_has_alarms_of_its_own},
          {"alarms.not_kept_are_not_given", what_is_not_kept_is_not_given},
          {"test_events.come_only_when_asked_for", a_test_is_not_made_unasked},
          {"entity_agent.takes_a_server", a_server_is_not_asked_before_it_is_registered}};
}

}  // namespace conformance
