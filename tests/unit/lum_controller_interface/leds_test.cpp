// Port LEDs.
#include <gmock/gmock.h>

#include "base/shared.h"
#include "library.h"

namespace leds_test {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t rsip = 0x30007;
constexpr uint32_t unknown_rsip = 0x30099;
constexpr uint32_t untouched = 0xDDDDDDDD;

class leds : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    add_port(rsip);
    clear_record();
  }
};

// ---- Setting ----

TEST_F(leds, setting_state_0_calls_the_platform_once) {
  lum::shared_store(data_at(rsip).led_state, 3);
  EXPECT_EQ(lum_optics_led_set_state(rsip, 0, 0), 0u);
  EXPECT_THAT(calls({"led_set_state"}), ElementsAre("led_set_state(0x30007, 0, 0)"));
  EXPECT_EQ(data_at(rsip).led_state, 0u);
}

TEST_F(leds, setting_state_5_calls_the_platform_twice_0_then_5) {
  EXPECT_EQ(lum_optics_led_set_state(rsip, 0, 5), 0u);
  EXPECT_THAT(calls({"led_set_state"}),
              ElementsAre("led_set_state(0x30007, 0, 0)", "led_set_state(0x30007, 0, 5)"));
  EXPECT_EQ(data_at(rsip).led_state, 5u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(leds, second_argument_is_ignored_and_0_passed_on) {
  EXPECT_EQ(lum_optics_led_set_state(rsip, 77, 1), 0u);
  EXPECT_THAT(calls({"led_set_state"}),
              ElementsAre("led_set_state(0x30007, 0, 0)", "led_set_state(0x30007, 0, 1)"));
  uint32_t state = 0;
  EXPECT_EQ(lum_optics_led_get_state(rsip, 77, &state), 0u);
  EXPECT_THAT(calls({"led_get_state"}), ElementsAre("led_get_state(0x30007, 0)"));
}

TEST_F(leds, failed_clearing_is_ignored) {
  script.fail("led_set_state", 1, 5);
  EXPECT_EQ(lum_optics_led_set_state(rsip, 0, 1), 0u);
  EXPECT_EQ(client.led(rsip), 1u);
  lum::shared_store(data_at(rsip).led_state, 3);
  script.forget();
  script.fail("led_set_state", 1, 5);
  EXPECT_EQ(lum_optics_led_set_state(rsip, 0, 0), 0u);
  EXPECT_EQ(data_at(rsip).led_state, 0u);
}

TEST_F(leds, failed_setting_is_returned_but_the_state_recorded) {
  script.fail("led_set_state", 2, 5);
  EXPECT_EQ(lum_optics_led_set_state(rsip, 0, 3), 5u);
  EXPECT_EQ(data_at(rsip).led_state, 3u);
}

TEST_F(leds, setting_without_a_callback_succeeds_and_is_recorded) {
  lum_get_ctx()->platform_cbs.led_set_state = nullptr;
  EXPECT_EQ(lum_optics_led_set_state(rsip, 0, 3), 0u);
  EXPECT_EQ(data_at(rsip).led_state, 3u);
}

TEST_F(leds, setting_for_an_unknown_port_calls_the_platform_and_returns_22) {
  EXPECT_EQ(lum_optics_led_set_state(unknown_rsip, 0, 3), 22u);
  EXPECT_THAT(calls({"led_set_state"}),
              ElementsAre("led_set_state(0x30099, 0, 0)", "led_set_state(0x30099, 0, 3)"));
  EXPECT_THAT(
      traces(),
      ElementsAre(
          error(153, "Port not found in DB rsip=0x30099\n").of("lum_controller_interface")));
}

TEST_F(leds, setting_for_an_unknown_port_returns_22_whatever_the_platform_answers) {
  script.fail("led_set_state", 2, 5);
  EXPECT_EQ(lum_optics_led_set_state(unknown_rsip, 0, 3), 22u);
  lum_get_ctx()->platform_cbs.led_set_state = nullptr;
  EXPECT_EQ(lum_optics_led_set_state(unknown_rsip, 0, 3), 22u);
  EXPECT_THAT(traces(), ElementsAre(error(153, "Port not found in DB rsip=0x30099\n"),
                                    error(153, "Port not found in DB rsip=0x30099\n")));
}

TEST_F(leds, setting_state_0_for_an_unknown_port_calls_the_platform_once) {
  EXPECT_EQ(lum_optics_led_set_state(unknown_rsip, 0, 0), 22u);
  EXPECT_THAT(calls({"led_set_state"}), ElementsAre("led_set_state(0x30099, 0, 0)"));
}

TEST_F(leds, without_a_context_there_is_no_platform_to_ask) {
  const context_hidden hidden;
  uint32_t state = untouched;
  EXPECT_EQ(lum_optics_led_set_state(rsip, 0, 3), 0u);
  EXPECT_EQ(lum_optics_led_get_state(rsip, 0, &state), 0u);
  EXPECT_THAT(calls({"led_set_state", "led_get_state"}), IsEmpty());
  EXPECT_EQ(data_at(rsip).led_state, 3u);
  EXPECT_EQ(state, untouched);
}

// ---- Getting ----

TEST_F(leds, platforms_answer_stands) {
  client.set_led(rsip, 2);
  lum::shared_store(data_at(rsip).led_state, 3);
  uint32_t state = untouched;
  EXPECT_EQ(lum_optics_led_get_state(rsip, 0, &state), 0u);
  EXPECT_EQ(state, 2u);
}

TEST_F(leds, platforms_answer_stands_for_an_unknown_port_too) {
  client.set_led(unknown_rsip, 2);
  uint32_t state = untouched;
  EXPECT_EQ(lum_optics_led_get_state(unknown_rsip, 0, &state), 0u);
  EXPECT_EQ(state, 2u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(leds, getting_without_a_callback_returns_0_and_leaves_the_output) {
  lum_get_ctx()->platform_cbs.led_get_state = nullptr;
  uint32_t state = untouched;
  EXPECT_EQ(lum_optics_led_get_state(rsip, 0, &state), 0u);
  EXPECT_EQ(lum_optics_led_get_state(unknown_rsip, 0, &state), 0u);
  EXPECT_EQ(state, untouched);
}

TEST_F(leds, failed_getting_falls_back_on_the_recorded_state) {
  lum::shared_store(data_at(rsip).led_state, 3);
  script.fail("led_get_state", 1, 5);
  uint32_t state = untouched;
  EXPECT_EQ(lum_optics_led_get_state(rsip, 0, &state), 0u);
  EXPECT_EQ(state, 3u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(leds, recorded_state_takes_the_place_of_what_a_failed_getting_left) {
  lum_get_ctx()->platform_cbs.led_get_state = [](uint32_t, uint32_t, uint32_t *state) -> cerrno {
    *state = 9;
    return 5;
  };
  lum::shared_store(data_at(rsip).led_state, 3);
  uint32_t state = untouched;
  EXPECT_EQ(lum_optics_led_get_state(rsip, 0, &state), 0u);
  EXPECT_EQ(state, 3u);
}

TEST_F(leds, failed_getting_for_an_unknown_port_returns_22) {
  script.fail("led_get_state", 1, 5);
  uint32_t state = untouched;
  EXPECT_EQ(lum_optics_led_get_state(unknown_rsip, 0, &state), 22u);
  EXPECT_EQ(state, untouched);
  EXPECT_THAT(
      traces(),
      ElementsAre(
          error(154, "Port not found in DB rsip=0x30099\n").of("lum_controller_interface")));
}

TEST_F(leds, no_lock_but_the_databases_is_taken) {
  watch(data_at(rsip).port_mutex, "port");
  lum_optics_led_set_state(rsip, 0, 3);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock"}), IsEmpty());
}

// ---- Merging ----

struct merge_case {
  uint32_t first;
  uint32_t second;
  uint32_t result;
};
void PrintTo(const merge_case &each, std::ostream *out) {
  *out << each.first << " and " << each.second;
}

class led_merge : public testing::TestWithParam<merge_case> {};

TEST_P(led_merge, gives_the_result) {
  uint32_t result = untouched;
  lum_get_final_sw_led_state(GetParam().first, GetParam().second, &result);
  EXPECT_EQ(result, GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    each_rule, led_merge,
    testing::Values(merge_case{1, 3, 1}, merge_case{3, 1, 1}, merge_case{0, 3, 3},
                    merge_case{3, 0, 3}, merge_case{2, 3, untouched}, merge_case{3, 2, untouched},
                    merge_case{3, 3, 3}, merge_case{0, 0, 0}, merge_case{1, 1, 1},
                    merge_case{2, 2, 2}, merge_case{1, 0, 1}, merge_case{0, 1, 1},
                    merge_case{0, 2, 2}, merge_case{2, 0, 2}, merge_case{2, 1, 1},
                    merge_case{1, 2, 1}, merge_case{0xFFFFFFFF, 7, untouched},
                    merge_case{1, 0xFFFFFFFF, 1}, merge_case{0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}));

}  // namespace

}  // namespace leds_test
