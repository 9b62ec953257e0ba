// Whatever call of the platform fails in a call of the library, the first, the second and so on to
// the last, once or with all after it: the process goes on, no lock is left held, and what is asked
// for next works. Each time in a process of its own. LUM_FAILING_CALL names one call of the
// library, and tells what failed.
#include <gtest/gtest.h>

#include "calls.h"
#include "controllers.h"
#include "trials.h"

namespace failing_platform_test {

using namespace failing_platform;

namespace {

#ifdef LUM_SANITIZED
constexpr unsigned fewest = 600;
#else
constexpr unsigned fewest = 1000;
#endif

class while_it_runs : public support::created_ports, public testing::WithParamInterface<int> {};

ending try_one(const std::function<void()> &operate, const failing &how, unsigned nth) {
  begin_polling_anew();
  prepare_calls();
  if (!met_while(operate, how, nth)) return not_met;
  if (!all_locks_are_free()) return lock_held;
  return comes_back() ? went_well : does_not_come_back;
}

}  // namespace

TEST_P(while_it_runs, whatever_call_of_the_platform_fails_the_next_ones_work) {
  const failing &how = failings[GetParam()];
  tally all;
  for (const call_table *table : {&port_calls(), &plain_calls()}) {
    for (const auto &[name, operate] : *table) {
      try_each(
          name, [&, &call = operate](unsigned nth) { return try_one(call, how, nth); }, all);
    }
  }
  expect_all_survived(how, all, fewest);
}

INSTANTIATE_TEST_SUITE_P(failing_platform, while_it_runs, testing::Range(0, 4));

}  // namespace failing_platform_test
