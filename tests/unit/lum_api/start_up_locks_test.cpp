// The start-up lock, and the serial lock that start-up makes.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "deadlock_marks.h"
#include "library.h"
#include "lum_api/lum_api.h"
#include "lum_modules.h"

namespace start_up_locks_test {

using namespace support;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

namespace {

std::vector<std::string> marks() { return calls({"ptd_set_mutex_block", "ptd_unset_mutex_block"}); }

const auto one_wait = ElementsAre(
    MatchesRegex("ptd_set_mutex_block\\(\"lum_infra_init\", [0-9]+\\)"), "ptd_unset_mutex_block()");

// ---- The start-up lock ----

TEST(start_up_lock, waiting_for_it_is_marked) {
  script.fail("pthread_mutex_trylock", 1, EBUSY);
  EXPECT_EQ(boot(), 0u);
  EXPECT_THAT(marks(), one_wait);
}

TEST(start_up_lock, is_named_to_the_deadlock_monitor) {
  script.fail("pthread_mutex_trylock", 1, EBUSY);
  EXPECT_EQ(boot(), 0u);
  const deadlock_marks first = last_marks();
  EXPECT_NE(first.set, nullptr);
  EXPECT_EQ(first.unset, first.set);
  script.fail("pthread_mutex_trylock", 1, EBUSY, first.set);
  clear_record();
  const lum_infra_params params = parameters();
  EXPECT_EQ(lum_infra_init(&params), 0u);
  EXPECT_THAT(marks(), SizeIs(2));
  EXPECT_EQ(last_marks().set, first.set);
}

TEST(start_up_lock, that_cannot_be_taken_starts_nothing_and_the_next_call_starts_everything) {
  lum_lib_init();
  clear_record();
  const lum_infra_params params = parameters();
  script.fail("pthread_mutex_trylock", 1, EINVAL);
  EXPECT_EQ(lum_infra_init(&params), 22u);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_EQ(lum_get_ctx()->evm, 0u);

  script.forget();
  EXPECT_EQ(lum_infra_init(&params), 0u);
  polling.wait_asleep();
  EXPECT_EQ(lum_get_ctx()->evm, client_manager);
  EXPECT_THAT(traces(), Contains(info("DOM thread created\n")));
}

TEST(start_up_lock, that_fails_after_a_wait_starts_nothing_and_is_unmarked) {
  lum_lib_init();
  clear_record();
  const lum_infra_params params = parameters();
  script.fail("pthread_mutex_trylock", 1, EBUSY);
  script.fail("pthread_mutex_lock", 1, EINVAL);
  EXPECT_EQ(lum_infra_init(&params), 22u);
  EXPECT_THAT(calls(), one_wait);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_EQ(lum_get_ctx()->evm, 0u);
}

TEST(start_up_lock, is_held_when_the_modules_start) {
  static const lum_infra_params params = parameters();
  static uint32_t inner;
  lum::lum_module_table()[1].init = [](event_manager, uint32_t) -> cerrno {
    inner = lum_infra_init(&params);
    return 0;
  };
  EXPECT_EQ(boot(params), 0u);
  EXPECT_EQ(inner, static_cast<uint32_t>(EDEADLK));
  EXPECT_THAT(marks(), one_wait);
  EXPECT_THAT(calls({"pthread_create"}), SizeIs(1));
}

TEST(start_up_lock, is_held_from_the_first_trace_to_the_last) {
  lum_infra_params params = parameters();
  params.pm_alarm_test = 1;
  lum_lib_init();
  std::vector<uint32_t> inner;
  at_trace = [&, mine = std::this_thread::get_id()](const trace_line &) {
    if (std::this_thread::get_id() == mine) inner.push_back(lum_infra_init(&params));
  };
  EXPECT_EQ(lum_infra_init(&params), 0u);
  polling.wait_asleep();
  at_trace = nullptr;
  EXPECT_THAT(inner, SizeIs(testing::Gt(8u)));
  EXPECT_THAT(inner, Each(static_cast<uint32_t>(EDEADLK)));
}

TEST(start_up_lock, concurrent_callers_start_one_library) {
  lum_lib_init();
  const lum_infra_params params = parameters();
  std::vector<std::thread> callers;
  std::vector<uint32_t> results(8, 1);
  for (uint32_t &result : results) {
    callers.emplace_back([&] { result = lum_infra_init(&params); });
  }
  for (std::thread &caller : callers) caller.join();
  EXPECT_THAT(results, Each(0u));
  EXPECT_EQ(calls({"pthread_create"}).size(), 1u);
  EXPECT_EQ(calls({"wavl_init"}).size(), 1u);
  polling.wait_asleep();
}

// ---- The serial lock ----

TEST(new_serial_lock, is_error_checking) {
  EXPECT_EQ(boot(), 0u);
  EXPECT_EQ(pthread_mutex_lock(&lum::serial_mutex), 0);
  EXPECT_EQ(pthread_mutex_lock(&lum::serial_mutex), EDEADLK);
  EXPECT_EQ(pthread_mutex_unlock(&lum::serial_mutex), 0);
}

class new_serial_lock_without_attributes : public testing::TestWithParam<const char *> {};

TEST_P(new_serial_lock_without_attributes, is_left_cleared) {
  std::memset(&lum::serial_mutex, 0xFF, sizeof lum::serial_mutex);
  script.fail(GetParam(), 2, ENOMEM);
  EXPECT_EQ(boot(), 0u);
  const pthread_mutex_t cleared = {};
  EXPECT_EQ(std::memcmp(&lum::serial_mutex, &cleared, sizeof cleared), 0);
}

INSTANTIATE_TEST_SUITE_P(each_call, new_serial_lock_without_attributes,
                         testing::Values("pthread_mutexattr_init", "pthread_mutexattr_settype"));

TEST(new_serial_lock, second_start_up_leaves_it_to_its_holder) {
  EXPECT_EQ(boot(), 0u);
  lum_serial_lock(1, "x");
  const lum_infra_params params = parameters();
  EXPECT_EQ(lum_infra_init(&params), 0u);
  EXPECT_EQ(pthread_mutex_trylock(&lum::serial_mutex), EBUSY);
  EXPECT_EQ(pthread_mutex_unlock(&lum::serial_mutex), 0);
}

}  // namespace

}  // namespace start_up_locks_test
