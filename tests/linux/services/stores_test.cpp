#include <gtest/gtest.h>

#include <thread>

#include "lum_linux/stores.h"

namespace {

using namespace lum_linux;
using namespace std::chrono_literals;

// A time that starts a 15-minute and a 24-hour bin.
const store_time first_midnight{std::chrono::hours(24 * 20000)};

class stores : public testing::Test {
 protected:
  void SetUp() override {
    stores_set_clock([this] { return now; });
  }
  void TearDown() override {
    stores_set_clock({});
    pm_forget_all();
    ptah_forget_all();
  }
  void sample(uint32_t ifhandle, uint32_t value) {
    const pm_ui_optics_record record = {value, {value, value, value}, value * 2, value * 3};
    ASSERT_EQ(pm_ui_set_optics_prim(ifhandle, &record, 1, 0), 0u);
  }
  store_time now = first_midnight;
};

constexpr size_t index_of(pm_value value) { return static_cast<size_t>(value); }

}  // namespace

TEST_F(stores, pm_ports_are_created_found_and_deleted_once) {
  EXPECT_EQ(pm_ui_db_search_node(5), nullptr);
  EXPECT_EQ(pm_ui_port_create(188, 5, "Ots0_1_0_3_0"), 0u);
  EXPECT_NE(pm_ui_db_search_node(5), nullptr);
  EXPECT_EQ(pm_ui_port_create(188, 5, "Ots0_1_0_3_0"), 17u);
  EXPECT_EQ(pm_ui_port_delete(5), 0u);
  EXPECT_EQ(pm_ui_port_delete(5), 2u);
  EXPECT_EQ(pm_ui_db_search_node(5), nullptr);
}

TEST_F(stores, pm_refuses_what_makes_no_sense) {
  const pm_ui_optics_record record = {};
  EXPECT_EQ(pm_ui_port_create(188, 0, "x"), 22u);
  EXPECT_EQ(pm_ui_port_create(188, 1, nullptr), 22u);
  EXPECT_EQ(pm_ui_port_create(188, 1, std::string(64, 'x').c_str()), 22u);
  EXPECT_EQ(pm_ui_port_create(188, 1, std::string(63, 'x').c_str()), 0u);
  EXPECT_EQ(pm_ui_set_optics_prim(1, nullptr, 1, 0), 22u);
  EXPECT_EQ(pm_ui_set_optics_prim(1, &record, 1, 1), 22u);
  EXPECT_EQ(pm_ui_set_optics_prim(2, &record, 1, 0), 2u);
  EXPECT_EQ(pm_ui_set_optics_prim(1, &record, 0, 0), 0u);
  EXPECT_FALSE(pm_find(1)->latest.has_value());
  EXPECT_FALSE(pm_find(2).has_value());
}

TEST_F(stores, pm_keeps_the_latest_and_the_extremes) {
  ASSERT_EQ(pm_ui_port_create(188, 5, "Ots0_1_0_3_0"), 0u);
  for (const uint32_t value : {20u, 10u, 60u, 30u}) {
    now += 5s;
    sample(5, value);
  }
  const auto all = pm_interfaces();
  ASSERT_EQ(all.size(), 1u);
  const pm_interface &port = all[0];
  EXPECT_EQ(port.ifhandle, 5u);
  EXPECT_EQ(port.iftype, 188u);
  EXPECT_EQ(port.name, "Ots0_1_0_3_0");
  ASSERT_TRUE(port.latest.has_value());
  EXPECT_EQ(port.latest->reading_3, 30u);
  EXPECT_EQ(port.updated.time, now);
  for (const pm_bin *bin : {&port.quarter, &port.day}) {
    EXPECT_EQ(bin->start, first_midnight);
    EXPECT_EQ(bin->samples, 4u);
    EXPECT_FALSE(bin->partial);
    const pm_statistics &power = bin->values[index_of(pm_value::power_1)];
    EXPECT_EQ(power.current, 60u);
    EXPECT_EQ(power.minimum, 20u);
    EXPECT_EQ(power.maximum, 120u);
    EXPECT_DOUBLE_EQ(power.average, 60.0);
    EXPECT_EQ(bin->values[index_of(pm_value::power_0)].maximum, 180u);
  }
  EXPECT_TRUE(port.quarters.empty());
}

TEST_F(stores, pm_marks_the_bins_that_tests_have_touched) {
  ASSERT_EQ(pm_ui_port_create(188, 5, "Ots0_1_0_3_0"), 0u);
  pm_values_are_tested(77, true);  // nobody's
  pm_values_are_tested(5, true);
  EXPECT_FALSE(pm_find(5)->quarter.tested) << "nothing has been stored yet";
  sample(5, 20);
  pm_values_are_tested(5, false);
  sample(5, 20);
  EXPECT_TRUE(pm_find(5)->quarter.tested);
  now += 15min;
  sample(5, 20);
  const auto port = pm_find(5);
  EXPECT_FALSE(port->quarter.tested);
  EXPECT_TRUE(port->quarters.at(0).tested);
  EXPECT_TRUE(port->day.tested);
}

TEST_F(stores, pm_finishes_bins_as_time_goes_by) {
  now = first_midnight + 7min;
  ASSERT_EQ(pm_ui_port_create(188, 5, "x"), 0u);
  sample(5, 1);
  now = first_midnight + 15min;
  sample(5, 2);
  now = first_midnight + 29min;
  sample(5, 4);
  now = first_midnight + 46min;
  const pm_interface port = *pm_find(5);
  EXPECT_EQ(port.quarter.start, first_midnight + 45min);
  EXPECT_EQ(port.quarter.samples, 0u);
  ASSERT_EQ(port.quarters.size(), 2u);
  EXPECT_EQ(port.quarters[0].start, first_midnight + 15min);
  EXPECT_FALSE(port.quarters[0].partial);
  EXPECT_DOUBLE_EQ(port.quarters[0].values[0].average, 3.0);
  EXPECT_EQ(port.quarters[1].start, first_midnight);
  EXPECT_TRUE(port.quarters[1].partial);
  EXPECT_EQ(port.day.samples, 3u);
  EXPECT_TRUE(port.day.partial);
}

TEST_F(stores, pm_keeps_as_many_finished_bins_as_it_says) {
  ASSERT_EQ(pm_ui_port_create(188, 5, "x"), 0u);
  for (int quarter = 0; quarter < 12 * 96; ++quarter) {
    sample(5, static_cast<uint32_t>(quarter));
    now += 15min;
  }
  const pm_interface port = *pm_find(5);
  EXPECT_EQ(port.quarters.size(), pm_short_history);
  EXPECT_EQ(port.days.size(), pm_long_history);
  EXPECT_EQ(port.quarters[0].values[0].current, 12u * 96 - 1);
  EXPECT_EQ(port.days[0].samples, 96u);
}

// A clock that was set leaves a gap, or an overlap, in the bin before and in that of now.
TEST_F(stores, pm_marks_the_bins_that_a_setting_of_the_clock_cuts) {
  std::chrono::steady_clock::time_point moment;
  stores_set_clock([this] { return now; }, [&moment] { return moment; });
  ASSERT_EQ(pm_ui_port_create(188, 5, "x"), 0u);
  const auto pass = [&](std::chrono::seconds time) {
    now += time;
    moment += time;
    sample(5, 1);
  };
  const auto set = [&](std::chrono::seconds by) {
    now += by;
    sample(5, 1);
  };
  sample(5, 1);
  pass(5min);
  EXPECT_FALSE(pm_find(5)->quarter.partial);
  set(5min);
  EXPECT_TRUE(pm_find(5)->quarter.partial) << "five minutes are missing";
  pass(10min);
  EXPECT_FALSE(pm_find(5)->quarter.partial) << "the next bin is whole";
  set(1s);
  EXPECT_FALSE(pm_find(5)->quarter.partial) << "a leap second";
  set(20min);
  EXPECT_TRUE(pm_find(5)->quarters.at(0).partial) << "its end is missing";
  EXPECT_TRUE(pm_find(5)->quarter.partial) << "its beginning is missing";
  EXPECT_TRUE(pm_find(5)->day.partial);
  pass(15min);
  EXPECT_FALSE(pm_find(5)->quarter.partial);
  set(-3min);
  EXPECT_TRUE(pm_find(5)->quarter.partial) << "three minutes are in it twice";
}

TEST_F(stores, pm_outlives_a_clock_that_jumps) {
  ASSERT_EQ(pm_ui_port_create(188, 5, "x"), 0u);
  sample(5, 1);
  now = first_midnight - 100h;
  sample(5, 2);
  EXPECT_TRUE(pm_find(5)->quarter.partial);
  now = store_time(-1s);
  sample(5, 3);
  EXPECT_EQ(pm_find(5)->quarter.start, store_time(-15min));
  now = first_midnight + 100000h;
  sample(5, 4);
  EXPECT_EQ(pm_find(5)->quarters.size(), 3u);
}

TEST_F(stores, ptah_ports_are_created_and_deleted_once) {
  uint64_t first = 0, second = 0, refused = 77;
  EXPECT_EQ(ptah_al_port_create(188, 5, "Ots0_1_0_3_0", 0, 1, &first), 0u);
  EXPECT_EQ(ptah_al_port_create(188, 6, "Ots0_1_0_3_1", 0, 0, &second), 0u);
  EXPECT_NE(first, 0u);
  EXPECT_NE(first, second);
  EXPECT_EQ(ptah_al_port_create(188, 5, "x", 0, 1, &refused), 17u);
  EXPECT_EQ(refused, 77u);
  ASSERT_EQ(ptah_interfaces().size(), 2u);
  EXPECT_EQ(ptah_interfaces()[0].name, "Ots0_1_0_3_0");
  EXPECT_EQ(ptah_interfaces()[0].handle, first);
  EXPECT_FALSE(ptah_interfaces()[1].enabled);
  EXPECT_EQ(ptah_al_port_delete(5), 0u);
  EXPECT_EQ(ptah_al_port_delete(5), 2u);
  EXPECT_FALSE(ptah_find(5).has_value());
}

TEST_F(stores, ptah_refuses_what_makes_no_sense) {
  uint64_t handle = 0;
  ptah_al_all all;
  all.bitmap = 77;
  EXPECT_EQ(ptah_al_port_create(188, 0, "x", 0, 1, &handle), 22u);
  EXPECT_EQ(ptah_al_port_create(188, 5, nullptr, 0, 1, &handle), 22u);
  EXPECT_EQ(ptah_al_port_create(188, 5, std::string(64, 'x').c_str(), 0, 1, &handle), 22u);
  EXPECT_EQ(ptah_al_port_create(188, 5, "x", 1, 1, &handle), 22u);
  EXPECT_EQ(ptah_al_port_create(188, 5, "x", 0, 1, nullptr), 22u);
  EXPECT_EQ(ptah_al_store_bmap(5, 1, 1), 2u);
  EXPECT_EQ(ptah_al_send_bmap_counter(5), 2u);
  EXPECT_EQ(ptah_al_port_clear_stats(5), 2u);
  EXPECT_EQ(ptah_al_get_all_from_ptah(5, &all), 2u);
  EXPECT_EQ(ptah_al_get_all_from_ptah(5, nullptr), 22u);
  EXPECT_EQ(all.bitmap, 77u);
}

TEST_F(stores, ptah_counts_publishes_changes_and_raises) {
  uint64_t handle = 0;
  ASSERT_EQ(ptah_al_port_create(188, 5, "x", 0, 1, &handle), 0u);
  const uint64_t top = 1ull << 63, last_counted = 1ull << 52;
  for (const uint64_t bitmap : {0ull, 0x5ull, 0x5ull, 0x4ull, 0x5ull | top | last_counted}) {
    EXPECT_EQ(ptah_al_store_bmap(5, bitmap, 1), 0u);
  }
  EXPECT_EQ(ptah_al_store_bmap(5, 0, 0), 0u);
  EXPECT_EQ(ptah_find(5)->published, 0u);
  EXPECT_EQ(ptah_al_send_bmap_counter(5), 0u);
  EXPECT_EQ(ptah_al_send_bmap_counter(5), 0u);
  ptah_al_all all = {};
  ASSERT_EQ(ptah_al_get_all_from_ptah(5, &all), 0u);
  EXPECT_EQ(all.bitmap, 0x5 | top | last_counted);
  EXPECT_EQ(all.values[0], 2u);
  EXPECT_EQ(all.values[1], 3u);
  EXPECT_EQ(all.values[2], 2u);
  EXPECT_EQ(all.values[3], 0u);
  EXPECT_EQ(all.values[4], 1u);
  EXPECT_EQ(all.values[54], 1u);
  EXPECT_EQ(ptah_find(5)->published, all.bitmap);
  EXPECT_EQ(ptah_find(5)->changed->time, now);

  now += 1min;
  EXPECT_EQ(ptah_al_port_clear_stats(5), 0u);
  ASSERT_EQ(ptah_al_get_all_from_ptah(5, &all), 0u);
  EXPECT_EQ(all.bitmap, 0x5 | top | last_counted);
  for (const uint32_t value : all.values) EXPECT_EQ(value, 0u);
  EXPECT_EQ(ptah_find(5)->cleared->time, now);
}

TEST_F(stores, are_used_by_many_threads_at_once) {
  std::vector<std::thread> threads;
  for (uint32_t t = 1; t <= 3; ++t) {
    threads.emplace_back([&, t] {
      for (uint32_t i = 0; i < 300; ++i) {
        const uint32_t ifhandle = 1 + (i + t) % 4;
        uint64_t handle = 0;
        pm_ui_port_create(188, ifhandle, "x");
        ptah_al_port_create(188, ifhandle, "x", 0, 1, &handle);
        const pm_ui_optics_record record = {i, {i, i, i}, i, i};
        pm_ui_set_optics_prim(ifhandle, &record, 1, 0);
        ptah_al_store_bmap(ifhandle, i, 1);
        ptah_al_send_bmap_counter(ifhandle);
        if (i % 7 == 0) {
          pm_ui_port_delete(ifhandle);
          ptah_al_port_delete(ifhandle);
        }
      }
    });
  }
  for (int i = 0; i < 100; ++i) {
    pm_interfaces();
    ptah_interfaces();
    pm_ui_db_search_node(2);
  }
  for (std::thread &t : threads) t.join();
}
