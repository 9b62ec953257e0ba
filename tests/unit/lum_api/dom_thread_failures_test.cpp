// The polling thread: failing modules, and threads beside it.
#include <gmock/gmock.h>

#include <pthread.h>

#include <string>

#include "dom_thread_fixture.h"

namespace dom_thread_failures_test {

using namespace dom_thread_fixture;
using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// ---- Failed transfers ----

TEST_F(dom_thread, failed_first_read_ends_the_visit_and_keeps_the_values) {
  lum_port_data &port = add(rsip);
  watch(port.port_mutex, "port");
  module().put_be16(0, 14, 0x1900);
  cycle();
  module().put_be16(0, 14, 0x2000);
  module().fail_transfers(5);
  cycle();
  EXPECT_THAT(
      traces(),
      ElementsAre(error(116, "Read failed for page 0 offset 0 for 0/7 rc 5\n"),
                  error(16, "module access failed with rc 5 for rsip=0x30007\n").of("lum_api")));
  EXPECT_THAT(calls({"i2c_read_block"}), SizeIs(5)) << "the second read is not tried";
  EXPECT_THAT(calls(port_locks),
              ElementsAre("pthread_mutex_trylock(port)", "pthread_mutex_unlock(port)"));
  EXPECT_EQ(port.module_temperature, 0x1900);
}

TEST_F(dom_thread, failed_second_read_ends_the_visit_and_keeps_the_values) {
  lum_port_data &port = add(rsip);
  watch(port.port_mutex, "port");
  module().put_be16(0, 14, 0x1900);
  for (unsigned nth = 2; nth <= 6; ++nth) script.fail("i2c_read_block", nth, 9);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(116, "Read failed for page 3 offset 80 for 0/7 rc 9\n"),
                                    error(17, "module access failed with rc 9 \n").of("lum_api")));
  EXPECT_THAT(calls(port_locks),
              ElementsAre("pthread_mutex_trylock(port)", "pthread_mutex_unlock(port)"));
  EXPECT_EQ(port.module_temperature, 0);
  EXPECT_THAT(calls({"led_set_state"}), IsEmpty());
}

TEST_F(dom_thread, failing_module_costs_five_calls_and_four_pauses) {
  add(rsip);
  module().fail_transfers(5);
  cycle();
  EXPECT_THAT(calls({"usleep"}),
              ElementsAre("usleep(30000)", "usleep(30000)", "usleep(30000)", "usleep(30000)"));
}

TEST_F(dom_thread, module_pulled_between_the_two_reads_is_a_failed_read) {
  add(rsip);
  modules.before_transfer = [first = true]() mutable {
    if (!first) modules.remove(3, 0, 7);
    first = false;
  };
  cycle();
  EXPECT_THAT(traces(), Contains(error(17, "module access failed with rc 6 \n")));
}

TEST_F(dom_thread, port_behind_a_failing_one_traces_the_lock_failure_and_is_still_read) {
  add(rsip);
  lum_port_data &second = add(rsip + 1);
  watch(second.port_mutex, "second");
  module(7).fail_transfers(5);
  module(8).put_be16(0, 14, 0x1900);
  cycle();
  EXPECT_THAT(
      story({"i2c_read_block", "pthread_mutex_trylock", "pthread_mutex_unlock"}),
      texts_in_order({"LUM_ERR: module access failed with rc 5 for rsip=0x30007\n",
                      "pthread_mutex_trylock(second)", "pthread_mutex_unlock(second)",
                      "LUM_ERR: module access lock failed with rc 5 \n",
                      "i2c_read_block(3, 0, 8, 0, 0, 128)", "i2c_read_block(3, 0, 8, 3, 128, 23)",
                      "pthread_mutex_unlock(second)"}));
  EXPECT_THAT(traces(),
              Contains(error(14, "module access lock failed with rc 5 \n").of("lum_api")));
  EXPECT_EQ(second.module_temperature, 0x1900);
}

TEST_F(dom_thread, successful_poll_stops_the_message) {
  for (uint32_t at = rsip; at < rsip + 3; ++at) add(at);
  module(7).fail_transfers(5);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(116, "Read failed for page 0 offset 0 for 0/7 rc 5\n"),
                                    error(16, "module access failed with rc 5 for rsip=0x30007\n"),
                                    error(14, "module access lock failed with rc 5 \n")));
  module(7).fail_transfers(0);
  cycle();
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(dom_thread, degraded_form_lasts_until_a_poll_succeeds) {
  for (uint32_t at = rsip; at < rsip + 4; ++at) add(at);
  module(7).fail_transfers(5);
  module(8).fail_transfers(9);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(116, "Read failed for page 0 offset 0 for 0/7 rc 5\n"),
                                    error(16, "module access failed with rc 5 for rsip=0x30007\n"),
                                    error(14, "module access lock failed with rc 5 \n"),
                                    error(116, "Read failed for page 0 offset 0 for 0/8 rc 9\n"),
                                    error(16, "module access failed with rc 9 for rsip=0x30008\n"),
                                    error(14, "module access lock failed with rc 9 \n")));
}

TEST_F(dom_thread, failure_is_remembered_across_cycles_and_unpolled_ports) {
  add(rsip);
  lum::shared_store(add(rsip + 1).is_dom_enabled, 0);
  module(7).fail_transfers(5);
  cycle();
  module(7).fail_transfers(0);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(14, "module access lock failed with rc 5 \n"),
                                    info(13, not_polled("0x30008", 0, 0, 0))));
  cycle();
  EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30008", 0, 0, 0))));
}

TEST_F(dom_thread, failed_second_read_is_remembered_too) {
  add(rsip);
  for (unsigned nth = 2; nth <= 6; ++nth) script.fail("i2c_read_block", nth, 9);
  cycle();
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(14, "module access lock failed with rc 9 \n")));
}

TEST_F(dom_thread, mutex_is_free_after_a_degraded_visit) {
  add(rsip);
  lum_port_data &second = add(rsip + 1);
  module(7).fail_transfers(5);
  cycle();
  EXPECT_EQ(pthread_mutex_trylock(&second.port_mutex), 0);
  EXPECT_EQ(pthread_mutex_unlock(&second.port_mutex), 0);
}

TEST_F(dom_thread, port_of_another_rack_fails_with_22_for_it_cannot_be_reached) {
  add(0x01030007);
  cycle();
  EXPECT_THAT(traces(),
              ElementsAre(error(114, "Port not found in DB for rsip=0x30007\n"),
                          error(16, "module access failed with rc 22 for rsip=0x1030007\n")));
}

// ---- Beside others ----

TEST_F(dom_thread, wait_for_a_ports_mutex_is_marked) {
  lum_port_data &port = add(rsip);
  ASSERT_EQ(pthread_mutex_lock(&port.port_mutex), 0);
  clear_record();
  polling.start_cycle();
  wait_for_a_mark();
  EXPECT_THAT(calls({"i2c_read_block"}), IsEmpty());
  ASSERT_EQ(pthread_mutex_unlock(&port.port_mutex), 0);
  polling.wait_asleep();
  EXPECT_THAT(
      calls({"ptd_set_mutex_block", "ptd_unset_mutex_block"}),
      ElementsAre("ptd_set_mutex_block(\"lum_dom_thread\", 302)", "ptd_unset_mutex_block()"));
  EXPECT_THAT(calls({"i2c_read_block"}), SizeIs(2));
}

class switched_off_while_waiting : public dom_thread, public testing::WithParamInterface<bool> {};

TEST_P(switched_off_while_waiting, is_traced_and_not_read) {
  lum_port_data &port = add(rsip);
  ASSERT_EQ(pthread_mutex_lock(&port.port_mutex), 0);
  watch(port.port_mutex, "port");
  clear_record();
  polling.start_cycle();
  wait_for_a_mark();
  if (GetParam()) {
    lum::shared_store(port.is_dom_enabled, 0);
  } else {
    lum::shared_store(port.transceiver_disabled, 1);
  }
  ASSERT_EQ(pthread_mutex_unlock(&port.port_mutex), 0);
  polling.wait_asleep();
  EXPECT_THAT(calls({"i2c_read_block"}), IsEmpty());
  EXPECT_THAT(
      traces(),
      ElementsAre(info(15, "DOM thread: DOM is disabled-2for rsip=0x30007\n").of("lum_api")));
  EXPECT_EQ(pthread_mutex_trylock(&port.port_mutex), 0) << "the mutex must have been released";
  EXPECT_EQ(pthread_mutex_unlock(&port.port_mutex), 0);
}

INSTANTIATE_TEST_SUITE_P(each_way, switched_off_while_waiting, testing::Bool());

TEST_F(dom_thread, deletion_that_the_interface_manager_refuses_stops_nobody) {
  create_ports(3, 0, {7, 8});
  modules.at(3, 0, 8);
  script.fail("im_req_by_name", 1, 16);
  const uint32_t port = 7;
  ASSERT_EQ(lum_delete_ports(0, 3, 0, 1, &port), 16u);
  polling.run_cycles(2);
  // Enabled again behind the deletion's back, it is still not to be had.
  lum::shared_store(data_at(rsip).is_dom_enabled, 1);
  lum::shared_store(data_at(rsip).transceiver_disabled, 0);
  cycle();
  EXPECT_THAT(
      calls({"ptd_set_mutex_block", "ptd_unset_mutex_block"}),
      ElementsAre("ptd_set_mutex_block(\"lum_dom_thread\", 302)", "ptd_unset_mutex_block()"));
}

TEST_F(dom_thread, ports_may_come_and_go_while_it_polls) {
  for (uint32_t at = rsip; at < rsip + 4; ++at) modules.at(3, 0, at & 0xFF);
  add(rsip);
  for (int round = 0; round < 50; ++round) {
    polling.start_cycle();
    add(rsip + 1 + static_cast<uint32_t>(round) % 3);
    lum_ports_db_remove_entry(rsip + 1 + static_cast<uint32_t>(round) % 3);
    polling.wait_asleep();
  }
}

}  // namespace

}  // namespace dom_thread_failures_test
