// Bins that outlive the process.
#include <gtest/gtest.h>

#include "lum_linux/stores.h"

namespace {

using namespace lum_linux;
using namespace std::chrono_literals;

// A time that starts a 15-minute and a 24-hour bin.
const store_time midnight{std::chrono::hours(24 * 20000)};

class kept_bins : public testing::Test {
 protected:
  void SetUp() override {
    stores_set_clock([this] { return now; });
    create(5);
  }
  void TearDown() override {
    stores_set_clock({});
    pm_forget_all();
  }
  static void create(uint32_t ifhandle, const char *name = "Ots0_1_0_3_0") {
    ASSERT_EQ(pm_ui_port_create(188, ifhandle, name), 0u);
  }
  void sample(uint32_t ifhandle, uint32_t value) {
    now += 5s;
    const pm_ui_optics_record record = {value, {value, value, value}, value, value};
    ASSERT_EQ(pm_ui_set_optics_prim(ifhandle, &record, 1, 0), 0u);
  }
  // Another process, which finds what this one has kept.
  static void restart_with(const pm_unkept &kept) {
    pm_forget_all();
    pm_take_back(kept.bins);
  }
  store_time now = midnight;
};

void expect_numbers(const pm_bin &bin, uint64_t samples, const pm_statistics &wanted) {
  EXPECT_EQ(bin.samples, samples);
  for (const pm_statistics &value : bin.values) {
    EXPECT_EQ(value.current, wanted.current);
    EXPECT_EQ(value.minimum, wanted.minimum);
    EXPECT_EQ(value.maximum, wanted.maximum);
    EXPECT_DOUBLE_EQ(value.average, wanted.average);
  }
}

}  // namespace

TEST_F(kept_bins, the_current_ones_go_on_under_another_handle) {
  sample(5, 10);
  sample(5, 40);
  restart_with(pm_not_kept_yet());
  now += 1min;
  create(77);
  EXPECT_FALSE(pm_find(77)->latest.has_value());
  expect_numbers(pm_find(77)->quarter, 2, {40, 10, 40, 25});
  EXPECT_TRUE(pm_find(77)->quarter.partial);
  sample(77, 100);
  expect_numbers(pm_find(77)->quarter, 3, {100, 10, 100, 50});
  expect_numbers(pm_find(77)->day, 3, {100, 10, 100, 50});
}

TEST_F(kept_bins, finished_ones_come_back_as_they_were) {
  sample(5, 10);
  now = midnight + 15min;
  sample(5, 20);
  now = midnight + 30min;
  sample(5, 30);
  const auto before = pm_find(5)->quarters;
  ASSERT_EQ(before.size(), 2u);
  restart_with(pm_not_kept_yet());
  create(77);
  const auto after = pm_find(77)->quarters;
  ASSERT_EQ(after.size(), 2u);
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(after[i].start, before[i].start);
    EXPECT_FALSE(after[i].partial);
  }
  expect_numbers(after[0], 1, {20, 20, 20, 20});
}

TEST_F(kept_bins, one_that_the_process_did_not_live_to_finish_is_part_of_one) {
  sample(5, 10);
  const pm_unkept kept = pm_not_kept_yet();
  now = midnight + 20min;
  restart_with(kept);
  create(77);
  ASSERT_EQ(pm_find(77)->quarters.size(), 1u);
  EXPECT_TRUE(pm_find(77)->quarters[0].partial);
  EXPECT_EQ(pm_find(77)->quarter.samples, 0u);
}

TEST_F(kept_bins, one_that_is_finished_after_it_was_kept_is_kept_again_as_whole) {
  sample(5, 10);
  pm_mark_kept(pm_not_kept_yet());
  EXPECT_TRUE(pm_not_kept_yet().bins.empty());
  now = midnight + 15min;
  sample(5, 20);
  const pm_unkept kept = pm_not_kept_yet();
  ASSERT_EQ(kept.bins.size(), 3u);
  EXPECT_EQ(kept.bins[0].bin.start, midnight);
  EXPECT_FALSE(kept.bins[0].bin.partial);
  EXPECT_EQ(kept.bins[1].bin.start, midnight + 15min);
  EXPECT_EQ(kept.bins[2].bin.length, pm_long_bin);
  pm_mark_kept(kept);
  EXPECT_TRUE(pm_not_kept_yet().bins.empty());
  pm_mark_nothing_kept();
  EXPECT_EQ(pm_not_kept_yet().bins.size(), 3u);
}

TEST_F(kept_bins, a_sample_between_the_look_and_the_mark_is_not_taken_for_kept) {
  sample(5, 10);
  const pm_unkept kept = pm_not_kept_yet();
  sample(5, 20);
  pm_mark_kept(kept);
  ASSERT_EQ(pm_not_kept_yet().bins.size(), 2u);
  EXPECT_EQ(pm_not_kept_yet().bins[0].bin.samples, 2u);
}

TEST_F(kept_bins, what_comes_late_joins_what_is_there) {
  sample(5, 10);
  const pm_unkept kept = pm_not_kept_yet();
  pm_forget_all();
  create(77);
  sample(77, 30);
  pm_take_back(kept.bins);
  expect_numbers(pm_find(77)->quarter, 2, {30, 10, 30, 20});
}

TEST_F(kept_bins, those_of_a_deleted_interface_are_to_be_forgotten) {
  sample(5, 10);
  pm_mark_kept(pm_not_kept_yet());
  ASSERT_EQ(pm_ui_port_delete(5), 0u);
  create(77);
  sample(77, 20);
  const pm_unkept unkept = pm_not_kept_yet();
  EXPECT_EQ(unkept.deleted, std::vector<std::string>{"Ots0_1_0_3_0"});
  EXPECT_EQ(unkept.bins.size(), 2u);
  pm_mark_kept(unkept);
  EXPECT_TRUE(pm_not_kept_yet().deleted.empty());
}

TEST_F(kept_bins, nothing_is_remembered_of_interfaces_that_nobody_keeps) {
  sample(5, 10);
  ASSERT_EQ(pm_ui_port_delete(5), 0u);
  EXPECT_TRUE(pm_not_kept_yet().deleted.empty());
}

TEST_F(kept_bins, one_that_is_deleted_while_it_is_being_kept_is_to_be_forgotten) {
  sample(5, 10);
  const pm_unkept under_way = pm_not_kept_yet();
  ASSERT_EQ(pm_ui_port_delete(5), 0u);
  pm_mark_kept(under_way);
  EXPECT_EQ(pm_not_kept_yet().deleted, std::vector<std::string>{"Ots0_1_0_3_0"});
}

TEST_F(kept_bins, those_that_nobody_can_have_kept_are_left_out) {
  sample(5, 10);
  const pm_kept_bin good = pm_not_kept_yet().bins.at(0);
  std::vector<pm_kept_bin> bad(7, good);
  bad[0].bin.length = 10min;
  bad[1].bin.start += 15min;
  bad[2].bin.start -= 1s;
  bad[3].bin.samples = 0;
  bad[4].bin.samples = uint64_t{1} << 40;
  bad[5].bin.values[2].minimum = 11;
  bad[6].bin.values[5].average = 1e300;
  pm_forget_all();
  pm_take_back(bad);
  create(77);
  EXPECT_EQ(pm_find(77)->quarter.samples, 0u);
  EXPECT_TRUE(pm_find(77)->quarters.empty());
}
