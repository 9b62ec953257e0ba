// The lock of the provisioning flags: its kind, its waits and its failures.
#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "library.h"

namespace prov_lock_test {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

constexpr const char *area = "lum_server";

// ---- Its kind ----

void expect_error_checking() {
  EXPECT_EQ(pthread_mutex_unlock(&prov_lock), EPERM);
  EXPECT_EQ(pthread_mutex_lock(&prov_lock), 0);
  EXPECT_EQ(pthread_mutex_lock(&prov_lock), EDEADLK);
  EXPECT_EQ(pthread_mutex_unlock(&prov_lock), 0);
}

TEST(prov_lock_kind, is_error_checking_once_the_library_runs) {
  EXPECT_EQ(boot(), 0u);
  expect_error_checking();
}

TEST(prov_lock_kind, is_error_checking_also_without_an_event_manager) {
  open_traces();
  EXPECT_EQ(lum_server_module_init(0, 0), 32u);
  expect_error_checking();
}

TEST(prov_lock_kind, is_error_checking_also_when_the_pulse_cannot_be_attached) {
  open_traces();
  script.fail("event_async_attach", 1, 1);
  EXPECT_EQ(lum_server_module_init(client_manager, 0), 32u);
  expect_error_checking();
}

// ---- Waits and failures ----

class prov_lock_test : public running_library {
 protected:
  static std::vector<std::string> pulses() { return calls({"event_send_async"}); }
};

TEST_F(prov_lock_test, busy_prov_lock_is_waited_for_under_its_name_and_line_68) {
  script.fail("pthread_mutex_trylock", 1, EBUSY, &prov_lock);
  lum_prov_lock(12);
  EXPECT_THAT(calls(),
              ElementsAre("ptd_set_mutex_block(\"lum_prov_lock\", 68)", "ptd_unset_mutex_block()"));
  lum_prov_unlock(13);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(prov_lock_test, failed_prov_lock_is_unlocked_anyway_and_traced_with_the_callers_line) {
  watch(prov_lock, "prov");
  script.fail("pthread_mutex_trylock", 1, EINVAL, &prov_lock);
  lum_prov_lock(1234);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock", "pthread_mutex_unlock"}),
              ElementsAre("pthread_mutex_trylock(prov)", "pthread_mutex_unlock(prov)"));
  EXPECT_THAT(traces(),
              ElementsAre(error(252, "prov lock failed with rc: 22 line: 1234\n").of(area)));
}

TEST_F(prov_lock_test, second_lock_by_the_same_thread_fails_and_unlocks_the_first) {
  lum_prov_lock(1);
  lum_prov_lock(2);
  EXPECT_THAT(traces(), ElementsAre(error(252, "prov lock failed with rc: 35 line: 2\n")));
  EXPECT_EQ(pthread_mutex_trylock(&prov_lock), 0);
  pthread_mutex_unlock(&prov_lock);
}

TEST_F(prov_lock_test, failed_prov_unlock_is_traced_with_the_callers_line) {
  lum_prov_unlock(77);
  EXPECT_THAT(traces(),
              ElementsAre(error(253, "prov unlock failed with rc: 1 line: 77\n").of(area)));
}

TEST_F(prov_lock_test, wakeup_locks_as_line_93_and_unlocks_as_line_99) {
  script.fail("pthread_mutex_trylock", 1, EINVAL, &prov_lock);
  lum_wakeup_provisioning_thread();
  EXPECT_THAT(traces(), ElementsAre(info(250, "Entering lum_wakeup_provisioning_thread\n"),
                                    error(252, "prov lock failed with rc: 22 line: 93\n"),
                                    error(253, "prov unlock failed with rc: 1 line: 99\n"),
                                    info(251, "Exiting lum_wakeup_provisioning_thread\n")));
  EXPECT_THAT(pulses(), SizeIs(1)) << "it goes on all the same";
}

TEST_F(prov_lock_test, handler_that_cannot_take_it_makes_its_pass_all_the_same) {
  lum_mark_provisioning_needed(&add_port(0x30107).data);
  lum_wakeup_provisioning_thread();
  watch(prov_lock, "prov");
  script.fail("pthread_mutex_trylock", 1, EINVAL, &prov_lock);
  clear_record();
  EXPECT_EQ(events.run_pulses(), 1u);
  EXPECT_THAT(story({"pthread_mutex_trylock", "pthread_mutex_unlock"}),
              ElementsAre("LUM_INFO: Entering lum_provisioning_handler\n",
                          "pthread_mutex_trylock(prov)", "pthread_mutex_unlock(prov)",
                          StartsWith("LUM_ERR: prov lock failed with rc: 22 line: "),
                          "pthread_mutex_unlock(prov)",
                          StartsWith("LUM_ERR: prov unlock failed with rc: 1 line: "),
                          "pthread_mutex_trylock(prov)", "pthread_mutex_unlock(prov)",
                          "LUM_INFO: Going to Provision for rsip 0/3/1/7\n",
                          "LUM_INFO: Completed provisioning for rsip 0/3/1/7 loop_count = 1\n",
                          "LUM_INFO: Exiting lum_provisioning_handler\n"));
  EXPECT_EQ(lum_prov_pulse_sent, 0u);
  EXPECT_EQ(lum_pending_provisioning, 0u);
}

TEST_F(prov_lock_test, prov_lock_keeps_another_thread_waiting) {
  lum_prov_lock(1);
  std::thread waiting([] { lum_wakeup_provisioning_thread(); });
  while (calls({"ptd_set_mutex_block"}).empty()) std::this_thread::yield();
  EXPECT_THAT(pulses(), IsEmpty());
  lum_prov_unlock(2);
  waiting.join();
  EXPECT_THAT(pulses(), SizeIs(1));
}

}  // namespace

}  // namespace prov_lock_test
