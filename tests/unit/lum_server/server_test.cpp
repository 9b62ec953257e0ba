// The server module: its start-up, the wake-up and the provisioning handler.
#include <gmock/gmock.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "base/shared.h"
#include "one_port.h"

namespace server_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr const char *area = "lum_server";

const line_matcher entering_wakeup = info(250, "Entering lum_wakeup_provisioning_thread\n");
const line_matcher exiting_wakeup = info(251, "Exiting lum_wakeup_provisioning_thread\n");
const line_matcher entering_handler = info(258, "Entering lum_provisioning_handler\n");
const line_matcher exiting_handler = info(259, "Exiting lum_provisioning_handler\n");

line_matcher not_needed(const std::string &place) {
  return info(260, "Provisionig Not Needed for for rsip " + place + "\n");
}
line_matcher going(const std::string &place) {
  return info(261, "Going to Provision for rsip " + place + "\n");
}
line_matcher completed(const std::string &place, const std::string &ordinal) {
  return info(262, "Completed provisioning for rsip " + place + " loop_count = " + ordinal + "\n");
}

// ---- Start-up ----

TEST(server_init, attaches_the_handler_and_owes_a_replay) {
  EXPECT_EQ(boot(), 0u);
  EXPECT_THAT(calls({"event_async_attach"}), ElementsAre("event_async_attach(0x45, 128, 0)"));
  EXPECT_EQ(prov_thread_init_done, 1u);
  EXPECT_EQ(lum_get_ctx()->ea_replay_required_bitmap, 1u);
  EXPECT_EQ(lum_get_ctx()->is_resync_with_ea_complete, 0);
  EXPECT_THAT(traces(),
              lines_in_order({info(248, "Inside set_provisioning_handler_init\n").of(area),
                              info("SERVER module initialisation succeeded\n")}));
}

TEST(server_init, state_is_zero_at_load) {
  EXPECT_EQ(prov_thread_init_done, 0u);
  EXPECT_EQ(lum_pending_provisioning, 0u);
  EXPECT_EQ(lum_prov_in_progress, 0u);
  EXPECT_EQ(lum_prov_pulse_sent, 0u);
  EXPECT_EQ(prov_handler_run_count, 0u);
  EXPECT_EQ(ots_async_op, 0u);
}

TEST(server_init, registration_holds_manager_name_handlers_and_argument) {
  lum_infra_params params = parameters();
  params.restart = 5;
  EXPECT_EQ(boot(params), 0u);
  EXPECT_EQ(events.entity_agent.manager, client_manager);
  EXPECT_STREQ(events.entity_agent.name, "lum_server");
  EXPECT_NE(events.entity_agent.dispatch, nullptr);
  EXPECT_EQ(events.entity_agent.connect, lum_server_trigger_replay_request_on_connect);
  EXPECT_EQ(events.entity_agent.restart, 5);
}

TEST(server_init, failing_registration_is_of_no_consequence) {
  script.fail("ea_server_register", 1, 5);
  EXPECT_EQ(boot(), 0u);
  EXPECT_EQ(prov_thread_init_done, 1u);
}

TEST(server_init, without_an_event_manager_returns_32) {
  open_traces();
  EXPECT_EQ(lum_server_module_init(0, 0), 32u);
  EXPECT_THAT(traces(), ElementsAre(info(248, "Inside set_provisioning_handler_init\n").of(area),
                                    error(256, "Failed to get the EVM of main thread\n").of(area),
                                    error(249, "Failed to setup req queue infra\n").of(area)));
  EXPECT_EQ(prov_thread_init_done, 0u);
  EXPECT_EQ(lum_get_ctx()->ea_replay_required_bitmap, 0u);
  EXPECT_THAT(calls({"event_async_attach", "ea_server_register"}), IsEmpty());
}

TEST(server_init, pulse_that_cannot_be_attached_returns_32) {
  open_traces();
  script.fail("event_async_attach", 1, 1);
  EXPECT_EQ(lum_server_module_init(client_manager, 0), 32u);
  EXPECT_THAT(traces(),
              ElementsAre(info(248, "Inside set_provisioning_handler_init\n"),
                          error(257, "Failed to allocate async req pulse code\n").of(area),
                          error(249, "Failed to setup req queue infra\n")));
  EXPECT_EQ(prov_thread_init_done, 0u);
  EXPECT_THAT(calls({"ea_server_register"}), IsEmpty());
}

// ---- The wake-up ----

class server : public running_library {
 protected:
  static std::vector<trace_line> lines() { return traces_of(area); }
  static std::vector<std::string> pulses() { return calls({"event_send_async"}); }
  static lum_port_data &needy_port(uint32_t number) {
    lum_port_data &port = add_port(rsip_at(3, 1, number)).data;
    lum_mark_provisioning_needed(&port);
    clear_record();
    return port;
  }
  static void expect_idle() {
    EXPECT_EQ(lum_pending_provisioning, 0u);
    EXPECT_EQ(lum_prov_pulse_sent, 0u);
    EXPECT_EQ(lum_prov_in_progress, 0u);
  }
};

TEST_F(server, wakeup_sends_the_pulse_to_the_contexts_manager) {
  watch(prov_lock, "prov");
  lum_wakeup_provisioning_thread();
  EXPECT_THAT(story({"event_send_async", "pthread_mutex_trylock", "pthread_mutex_unlock"}),
              ElementsAre("LUM_INFO: Entering lum_wakeup_provisioning_thread\n",
                          "pthread_mutex_trylock(prov)", "event_send_async(0x45, 0x70, 0)",
                          "pthread_mutex_unlock(prov)",
                          "LUM_INFO: Exiting lum_wakeup_provisioning_thread\n"));
  EXPECT_EQ(lum_pending_provisioning, 1u);
  EXPECT_EQ(lum_prov_pulse_sent, 1u);
  EXPECT_EQ(lum_prov_in_progress, 0u);
}

TEST_F(server, wakeup_is_traced) {
  lum_wakeup_provisioning_thread();
  EXPECT_THAT(traces(), ElementsAre(entering_wakeup.of(area), exiting_wakeup.of(area)));
}

TEST_F(server, two_wakeups_before_the_handler_runs_send_one_pulse_and_make_one_pass) {
  needy_port(7);
  lum_wakeup_provisioning_thread();
  lum_wakeup_provisioning_thread();
  EXPECT_THAT(pulses(), SizeIs(1));
  EXPECT_EQ(events.run_pulses(), 1u);
  EXPECT_THAT(lines(), ElementsAre(entering_wakeup, exiting_wakeup, entering_wakeup, exiting_wakeup,
                                   entering_handler, going("0/3/1/7"), completed("0/3/1/7", "1"),
                                   exiting_handler));
  EXPECT_EQ(prov_handler_run_count, 1u);
  expect_idle();
}

TEST_F(server, pulse_that_could_not_be_sent_counts_as_sent) {
  script.fail("event_send_async", 1, 5);
  lum_wakeup_provisioning_thread();
  EXPECT_EQ(lum_prov_pulse_sent, 1u);
  lum_wakeup_provisioning_thread();
  EXPECT_THAT(pulses(), SizeIs(1));
}

TEST_F(server, wakeup_after_a_pass_sends_a_new_pulse) {
  for (uint32_t run = 1; run <= 3; ++run) {
    lum_wakeup_provisioning_thread();
    EXPECT_EQ(events.run_pulses(), 1u);
    EXPECT_EQ(prov_handler_run_count, run);
  }
  EXPECT_THAT(pulses(), SizeIs(3));
}

// ---- The handler ----

TEST_F(server, with_an_empty_database_the_handler_clears_pending_and_exits) {
  lum_wakeup_provisioning_thread();
  clear_record();
  EXPECT_EQ(events.run_pulses(), 1u);
  EXPECT_THAT(traces(), ElementsAre(entering_handler.of(area), exiting_handler.of(area)));
  expect_idle();
}

TEST_F(server, handler_with_nothing_pending_exits_at_once) {
  add_port(0x30107);
  lum_wakeup_provisioning_thread();
  lum_pending_provisioning = 0;
  clear_record();
  EXPECT_EQ(events.run_pulses(), 1u);
  EXPECT_THAT(traces(), ElementsAre(entering_handler, exiting_handler));
  EXPECT_THAT(calls({"wavl_get_first"}), IsEmpty());
  EXPECT_EQ(prov_handler_run_count, 1u);
}

TEST_F(server, ports_in_need_are_numbered_within_the_pass) {
  needy_port(6);
  add_port(0x30107);
  needy_port(8);
  for (int pass = 0; pass < 2; ++pass) {
    lum_wakeup_provisioning_thread();
    clear_record();
    events.run_pulses();
    EXPECT_THAT(lines(), ElementsAre(entering_handler, going("0/3/1/6"), completed("0/3/1/6", "1"),
                                     not_needed("0/3/1/7"), going("0/3/1/8"),
                                     completed("0/3/1/8", "2"), exiting_handler))
        << "the flags stay, the count begins again";
  }
}

TEST_F(server, signatures_of_the_handlers_traces) {
  needy_port(6);
  add_port(0x30107);
  lum_wakeup_provisioning_thread();
  clear_record();
  events.run_pulses();
  std::vector<std::string> signatures;
  for (const trace_line &line : lines()) signatures.push_back(line.signature);
  EXPECT_THAT(signatures, ElementsAre("sds", "sdsdddd", "sdsddddd", "sdsdddd", "sds"));
}

TEST_F(server, handler_leaves_the_flag_and_a_cleared_flag_ends_the_need) {
  lum_port_data &port = needy_port(7);
  lum_wakeup_provisioning_thread();
  events.run_pulses();
  EXPECT_EQ(port.provisioning_needed, 1u);
  lum_clear_provisioning_needed(&port);
  lum_wakeup_provisioning_thread();
  events.run_pulses();
  EXPECT_THAT(lines(), Contains(not_needed("0/3/1/7")));
}

TEST_F(server, wakeup_during_a_pass_sends_a_new_pulse_and_causes_a_second_pass) {
  needy_port(7);
  int wakeups = 1;
  at_trace = [&](const trace_line &line) {
    if (line.point != 261 || wakeups == 0) return;
    EXPECT_EQ(lum::shared_load(lum_prov_in_progress), 1u);
    EXPECT_EQ(lum::shared_load(lum_pending_provisioning), 0u);
    EXPECT_EQ(lum::shared_load(lum_prov_pulse_sent), 0u);
    --wakeups;
    lum_wakeup_provisioning_thread();
  };
  lum_wakeup_provisioning_thread();
  clear_record();
  EXPECT_EQ(events.run_pulses(), 2u);
  EXPECT_THAT(lines(),
              ElementsAre(entering_handler, going("0/3/1/7"), entering_wakeup, exiting_wakeup,
                          completed("0/3/1/7", "1"), going("0/3/1/7"), completed("0/3/1/7", "1"),
                          exiting_handler, entering_handler, exiting_handler));
  EXPECT_THAT(pulses(), SizeIs(1));
  EXPECT_EQ(prov_handler_run_count, 2u);
  expect_idle();
}

TEST_F(server, handler_is_counted_and_its_pulse_taken_behind_its_first_trace) {
  std::vector<uint32_t> seen;
  at_trace = [&](const trace_line &line) {
    if (line.point != 258) return;
    seen = {lum::shared_load(prov_handler_run_count), lum::shared_load(lum_prov_pulse_sent)};
  };
  lum_wakeup_provisioning_thread();
  events.run_pulses();
  EXPECT_THAT(seen, ElementsAre(0, 1));
  EXPECT_EQ(prov_handler_run_count, 1u);
}

TEST_F(server, handler_is_in_progress_through_both_passes_and_no_more_at_its_last_trace) {
  needy_port(7);
  std::vector<uint32_t> seen;
  at_trace = [&](const trace_line &line) {
    if (line.point != 261 && line.point != 259) return;
    if (seen.empty()) lum_wakeup_provisioning_thread();
    seen.push_back(lum::shared_load(lum_prov_in_progress));
  };
  lum_wakeup_provisioning_thread();
  EXPECT_EQ(events.run_pulses(), 2u);
  EXPECT_THAT(seen, ElementsAre(1, 1, 0, 0)) << "two passes, then the ends of two runs";
}

TEST_F(server, many_wakeups_during_one_pass_fold_into_one_pulse_and_one_more_pass) {
  needy_port(7);
  bool first = true;
  at_trace = [&](const trace_line &line) {
    if (line.point != 261 || !first) return;
    first = false;
    for (int i = 0; i < 5; ++i) lum_wakeup_provisioning_thread();
  };
  lum_wakeup_provisioning_thread();
  EXPECT_EQ(events.run_pulses(), 2u);
  EXPECT_THAT(pulses(), SizeIs(2));
  EXPECT_THAT(calls({"wavl_get_first"}), SizeIs(2));
}

TEST_F(server, pass_goes_on_with_the_successor_of_a_port_that_leaves_under_it) {
  for (const uint32_t number : {6u, 7u, 8u}) needy_port(number);
  at_trace = [](const trace_line &line) {
    if (line.text == "Going to Provision for rsip 0/3/1/7\n") lum_ports_db_remove_entry(0x30107);
  };
  lum_wakeup_provisioning_thread();
  events.run_pulses();
  EXPECT_THAT(lines(), lines_in_order({completed("0/3/1/6", "1"), completed("0/3/1/7", "2"),
                                       going("0/3/1/8"), completed("0/3/1/8", "3")}));
}

TEST_F(server, walk_takes_neither_the_database_mutex_nor_the_ports) {
  lum_port_data &port = needy_port(7);
  lum_wakeup_provisioning_thread();
  watch(lum_platform.mutex, "db");
  watch(port.port_mutex, "port");
  clear_record();
  events.run_pulses();
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock"}), IsEmpty());
}

TEST_F(server, handler_takes_prov_lock_once_for_the_pulse_and_once_for_each_pass) {
  lum_wakeup_provisioning_thread();
  watch(prov_lock, "prov");
  clear_record();
  events.run_pulses();
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_unlock"}),
              ElementsAre("pthread_mutex_trylock(prov)", "pthread_mutex_unlock(prov)",
                          "pthread_mutex_trylock(prov)", "pthread_mutex_unlock(prov)"));
}

// No request gets lost and no pulse is queued twice, whoever asks when.
TEST_F(server, wakeups_race_with_the_handler) {
  lum_port_data &port = needy_port(7);
  std::atomic<int> waking{4};
  std::vector<std::thread> clients;
  for (int i = 0; i < 4; ++i) {
    clients.emplace_back([&] {
      for (int n = 0; n < 250; ++n) {
        lum_mark_provisioning_needed(&port);
        lum_wakeup_provisioning_thread();
        lum_clear_provisioning_needed(&port);
      }
      --waking;
    });
  }
  unsigned run = 0;
  while (waking != 0) run += events.run_pulses();
  for (std::thread &each : clients) each.join();
  run += events.run_pulses();
  EXPECT_EQ(run, pulses().size());
  EXPECT_EQ(prov_handler_run_count, run);
  expect_idle();
}

}  // namespace

}  // namespace server_test
