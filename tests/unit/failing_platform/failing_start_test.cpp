// Whatever call of the platform fails in a call of the start, it can be made again, and the node
// works.
#include <gtest/gtest.h>

#include "calls.h"
#include "checkpoints.h"
#include "library.h"
#include "trials.h"

namespace failing_start_test {

using namespace failing_platform;

namespace {

class while_it_starts : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    for (const uint32_t number : two_ports) {
      const uint32_t rsip = support::rsip_at(slot, 0, number);
      lum_chkpt_record record = {};
      record.created = 1;
      record.key = rsip;
      support::checkpoints.survive(rsip, record);
      support::modules.at(slot, 0, number);
    }
  }
};

// The start goes on from the call that has failed.
bool starts(const start_up_call &call) {
  if (call.make() != 0) return false;
  if (!call.is_after_lib_init && lum_lib_init() != 0) return false;
  const lum_infra_params params = support::parameters();
  if (lum_infra_init(&params) != 0 || lum_modules_init(params.evm, 0) != 0) return false;
  if (lum_get_ctx()->dom_thread_started != 0) support::polling.wait_asleep();
  return true;
}

ending try_one(const start_up_call &call, const failing &how, unsigned nth) {
  if (call.is_after_lib_init) lum_lib_init();
  const auto make_and_settle = [&] {
    call.make();
    if (lum_get_ctx()->dom_thread_started != 0) support::polling.wait_asleep();
  };
  if (!met_while(make_and_settle, how, nth)) return not_met;
  if (!starts(call)) return refuses_again;
  if (!all_locks_are_free()) return lock_held;
  return comes_back() ? went_well : does_not_come_back;
}

}  // namespace

TEST_P(while_it_starts, whatever_call_of_the_platform_fails_the_next_start_works) {
  constexpr unsigned fewest = 30;
  const failing &how = failings[GetParam()];
  tally all;
  for (const auto &[name, call] : start_up_calls()) {
    try_each(
        name, [&, &one = call](unsigned nth) { return try_one(one, how, nth); }, all);
  }
  expect_all_survived(how, all, fewest);
}

INSTANTIATE_TEST_SUITE_P(failing_platform, while_it_starts, testing::Range(0, 4));

}  // namespace failing_start_test
