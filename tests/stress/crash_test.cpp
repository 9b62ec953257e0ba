// Kills a driver in the middle of a storm of configuration changes, again and again.
#include <gtest/gtest.h>

#include <cstdio>

#include "change_ledger.h"
#include "crew.h"
#include "driver_process.h"
#include "settings.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::microseconds;
using stress::below;
using stress::change_ledger;
using stress::crash_event;
using stress::driver_process;
using stress::driver_task;

constexpr auto start_bound = 60s;
constexpr uint32_t storm_us = stress::sanitized ? 300'000 : 80'000;  // at most, until the kill
constexpr uint32_t start_up_us = stress::sanitized ? 1'000'000 : 60'000;

// Reads records until the driver is ready; false when it ended or took too long before.
bool follow_until_ready(driver_process &driver, change_ledger &ledger) {
  while (const auto record = driver.next(start_bound)) {
    if (record->event == crash_event::ready) return true;
    ledger.note(*record);
  }
  return false;
}

void follow_for(driver_process &driver, change_ledger &ledger, microseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  for (;;) {
    const auto left =
        std::chrono::duration_cast<microseconds>(end - std::chrono::steady_clock::now());
    if (left <= 0us) return;
    const auto record = driver.next(left);
    if (record && record->event != crash_event::ready) ledger.note(*record);
    if (driver.ended()) return;
  }
}

bool kill_and_read_the_rest(driver_process &driver, change_ledger &ledger) {
  const bool killed = driver.kill_now();
  while (const auto record = driver.next(0us)) {
    if (record->event != crash_event::ready) ledger.note(*record);
  }
  return killed;
}

}  // namespace

TEST(crash, every_acknowledged_change_survives_a_kill_in_the_library_and_in_the_module) {
  const auto kills = stress::setting("LUM_CRASH_KILLS", 200, 20);
  const stress::work_folder folder(stress::folder_place::disk);
  stress::random_engine random(stress::setting("LUM_STRESS_SEED", 1));
  change_ledger ledger;
  uint64_t killed_at_start = 0;
  for (uint64_t i = 0; i < kills; ++i) {
    driver_process driver(folder.path(), random(), driver_task::storm);
    if (i > 0 && below(random, 6) == 0) {
      follow_for(driver, ledger, microseconds(below(random, start_up_us)));
      ++killed_at_start;
    } else {
      ASSERT_TRUE(follow_until_ready(driver, ledger)) << "start " << i;
      ledger.judge_modules(folder.path());
      driver.go();
      follow_for(driver, ledger, microseconds(below(random, storm_us)));
    }
    ASSERT_TRUE(kill_and_read_the_rest(driver, ledger)) << "the driver ended by itself";
  }
  driver_process last(folder.path(), 0, driver_task::report);
  ASSERT_TRUE(follow_until_ready(last, ledger));
  EXPECT_EQ(last.wait(), 0);
  ledger.judge_modules(folder.path());

  const stress::ledger_counts &counts = ledger.counts();
  std::printf(
      "kills: %lu tried, %lu survived, %lu of them during the start; %lu changes asked for, %lu "
      "acknowledged; %lu sub-ports judged after restarts: %lu lost, %lu torn, %lu not in the "
      "module\n",
      static_cast<unsigned long>(kills),
      static_cast<unsigned long>(ledger.complaints().empty() ? kills : 0),
      static_cast<unsigned long>(killed_at_start), static_cast<unsigned long>(counts.asked),
      static_cast<unsigned long>(counts.acknowledged), static_cast<unsigned long>(counts.recovered),
      static_cast<unsigned long>(counts.lost), static_cast<unsigned long>(counts.torn),
      static_cast<unsigned long>(counts.not_in_module));
  for (const std::string &complaint : ledger.complaints()) ADD_FAILURE() << complaint;
  EXPECT_GT(counts.acknowledged, kills);
  EXPECT_EQ(counts.refused, 0u);
  EXPECT_EQ(counts.lost, 0u);
  EXPECT_EQ(counts.torn, 0u);
  EXPECT_EQ(counts.not_in_module, 0u);
}
