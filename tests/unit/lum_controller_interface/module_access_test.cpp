// Module access and its transfers.
#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/shared.h"
#include "library.h"

namespace module_access_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr uint32_t rsip = 0x30107;
constexpr uint32_t read_direction = 1;
constexpr uint32_t write_direction = 0;

class module_access : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    add_port(rsip);
    module().put(2, 144, {0x11, 0x22, 0x33, 0x44});
    clear_record();
  }
  static module_memory &module() { return modules.at(3, 1, 7); }
  cerrno read(int32_t length, uint32_t page = 2, uint32_t offset = 144) {
    return lum_i2c_read_write(read_direction, 3, 1, 7, page, offset, length, buffer);
  }
  cerrno write(uint8_t value, int32_t length = 1) {
    buffer[0] = value;
    return lum_i2c_read_write(write_direction, 3, 1, 7, 2, 144, length, buffer);
  }
  uint8_t buffer[8] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
};

const std::initializer_list<std::string_view> transfers = {"i2c_read_byte", "i2c_read_block",
                                                           "i2c_write_byte", "usleep"};

// ---- Whether the module may be reached ----

TEST_F(module_access, unknown_port_is_22) {
  EXPECT_EQ(lum_i2c_read_write(read_direction, 3, 1, 8, 2, 144, 1, buffer), 22u);
  EXPECT_EQ(lum_i2c_read_write(write_direction, 3, 1, 8, 2, 144, 1, buffer), 22u);
  EXPECT_THAT(calls(transfers), IsEmpty());
  EXPECT_THAT(
      traces(),
      ElementsAre(
          error(114, "Port not found in DB for rsip=0x30108\n").of("lum_controller_interface"),
          error(114, "Port not found in DB for rsip=0x30108\n")));
}

TEST_F(module_access, disabled_transceiver_is_2_without_calling_any_callback) {
  lum::shared_store(data_at(rsip).transceiver_disabled, 1);
  EXPECT_EQ(read(1), 2u);
  EXPECT_EQ(read(4), 2u);
  EXPECT_EQ(write(5), 2u);
  EXPECT_THAT(calls(transfers), IsEmpty());
  EXPECT_THAT(
      traces(),
      ElementsAre(info(115, "HW not accessible for rsip=0x30107\n").of("lum_controller_interface"),
                  info(115, "HW not accessible for rsip=0x30107\n"),
                  info(115, "HW not accessible for rsip=0x30107\n")));
}

TEST_F(module_access, port_of_another_rack_cannot_be_reached) {
  add_port(0x01030109);
  clear_record();
  EXPECT_EQ(lum_i2c_read_write(read_direction, 3, 1, 9, 2, 144, 1, buffer), 22u);
  EXPECT_THAT(traces(), Contains(error(114, "Port not found in DB for rsip=0x30109\n")));
}

TEST_F(module_access, port_and_access_are_looked_at_before_the_callback_and_the_length) {
  lum_platform_cbs &callbacks = lum_get_ctx()->platform_cbs;
  callbacks.i2c_write_byte = nullptr;
  callbacks.i2c_read_byte = nullptr;
  callbacks.i2c_read_block = nullptr;
  for (const uint32_t direction : {read_direction, write_direction}) {
    for (const int32_t length : {0, 1, 4}) {
      clear_record();
      lum::shared_store(data_at(rsip).transceiver_disabled, 1);
      EXPECT_EQ(lum_i2c_read_write(direction, 3, 1, 8, 2, 144, length, buffer), 22u);
      EXPECT_EQ(lum_i2c_read_write(direction, 3, 1, 7, 2, 144, length, buffer), 2u);
      EXPECT_THAT(traces(), ElementsAre(error(114, "Port not found in DB for rsip=0x30108\n"),
                                        info(115, "HW not accessible for rsip=0x30107\n")));
    }
  }
}

// ---- Reads ----

TEST_F(module_access, one_byte_is_read_as_a_byte) {
  EXPECT_EQ(read(1), 0u);
  EXPECT_THAT(calls(transfers), ElementsAre("i2c_read_byte(3, 1, 7, 2, 144)"));
  EXPECT_EQ(buffer[0], 0x11);
  EXPECT_EQ(buffer[1], 0xEE);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(module_access, more_bytes_are_read_as_one_block) {
  EXPECT_EQ(read(4), 0u);
  EXPECT_THAT(calls(transfers), ElementsAre("i2c_read_block(3, 1, 7, 2, 144, 4)"));
  EXPECT_THAT(std::vector<uint8_t>(buffer, buffer + 5), ElementsAre(0x11, 0x22, 0x33, 0x44, 0xEE));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(module_access, any_direction_but_0_reads) {
  EXPECT_EQ(lum_i2c_read_write(0x80000000, 3, 1, 7, 2, 144, 2, buffer), 0u);
  EXPECT_THAT(calls(transfers), ElementsAre("i2c_read_block(3, 1, 7, 2, 144, 2)"));
}

TEST_F(module_access, page_and_offset_go_to_the_callback_unchanged) {
  read(2, 0x12345, 0xFFFFFFFF);
  EXPECT_THAT(calls(transfers), ElementsAre("i2c_read_block(3, 1, 7, 74565, 4294967295, 2)"));
}

TEST_F(module_access, read_that_succeeds_on_the_second_attempt_traces_nothing) {
  script.fail("i2c_read_block", 1, 5);
  EXPECT_EQ(read(2), 0u);
  EXPECT_THAT(calls(transfers), ElementsAre("i2c_read_block(3, 1, 7, 2, 144, 2)", "usleep(30000)",
                                            "i2c_read_block(3, 1, 7, 2, 144, 2)"));
  EXPECT_EQ(buffer[0], 0x11);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(module_access, read_that_succeeds_on_the_fourth_attempt_traces_nothing) {
  script.fail_first("i2c_read_byte", 3, 5);
  EXPECT_EQ(read(1), 0u);
  EXPECT_THAT(calls({"i2c_read_byte"}), SizeIs(4));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(module_access, read_that_succeeds_on_the_fifth_attempt_still_traces_a_failure_with_rc_0) {
  script.fail_first("i2c_read_block", 4, 5);
  EXPECT_EQ(read(4), 0u);
  EXPECT_EQ(buffer[3], 0x44);
  EXPECT_THAT(calls({"i2c_read_block"}), SizeIs(5));
  EXPECT_THAT(calls({"usleep"}),
              ElementsAre("usleep(30000)", "usleep(30000)", "usleep(30000)", "usleep(30000)"));
  EXPECT_THAT(traces(), ElementsAre(error(116, "Read failed for page 2 offset 90 for 1/7 rc 0\n")
                                        .of("lum_controller_interface")));
}

TEST_F(module_access, read_that_keeps_failing_costs_five_calls_and_four_pauses) {
  script.fail_first("i2c_read_block", 4, 5);
  script.fail("i2c_read_block", 5, 9);
  EXPECT_EQ(read(4), 9u) << "the fifth attempt's result";
  EXPECT_THAT(calls({"i2c_read_block"}), SizeIs(5));
  EXPECT_THAT(calls({"usleep"}), SizeIs(4));
  EXPECT_THAT(traces(), ElementsAre(error(116, "Read failed for page 2 offset 90 for 1/7 rc 9\n")));
}

TEST_F(module_access, read_without_a_read_byte_callback_returns_0_and_leaves_the_buffer) {
  lum_get_ctx()->platform_cbs.i2c_read_byte = nullptr;
  EXPECT_EQ(read(1), 0u);
  EXPECT_EQ(buffer[0], 0xEE);
  EXPECT_THAT(calls(transfers), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(module_access, read_without_a_read_block_callback_returns_0_and_leaves_the_buffer) {
  lum_get_ctx()->platform_cbs.i2c_read_block = nullptr;
  EXPECT_EQ(read(2), 0u);
  EXPECT_EQ(buffer[0], 0xEE);
  EXPECT_THAT(calls(transfers), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(module_access, read_of_length_0_or_less_returns_0_and_leaves_the_buffer) {
  EXPECT_EQ(read(0), 0u);
  EXPECT_EQ(read(-1), 0u);
  EXPECT_EQ(read(INT32_MIN), 0u);
  EXPECT_EQ(buffer[0], 0xEE);
  EXPECT_THAT(calls(transfers), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(module_access, what_a_failed_read_delivered_reaches_the_buffer) {
  module().leave_on_failure(0x5A);
  module().fail_transfers(5);
  EXPECT_EQ(read(4), 5u);
  EXPECT_THAT(std::vector<uint8_t>(buffer, buffer + 5), ElementsAre(0x5A, 0x5A, 0x5A, 0x5A, 0xEE));
}

TEST_F(module_access, failed_read_that_delivered_nothing_leaves_zeros) {
  module().fail_transfers(5);
  EXPECT_EQ(read(4), 5u);
  EXPECT_THAT(std::vector<uint8_t>(buffer, buffer + 5), ElementsAre(0, 0, 0, 0, 0xEE));
}

TEST_F(module_access, long_read_without_memory_is_refused) {
  std::vector<uint8_t> longer(257, 0xEE);
  script.fail("calloc", 1, 1);
  EXPECT_EQ(lum_i2c_read_write(1, 3, 1, 7, 2, 144, 257, longer.data()), 12u);
  EXPECT_EQ(longer[0], 0xEE);
  EXPECT_THAT(calls(transfers), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(module_access, module_that_goes_away_between_two_attempts_is_a_failed_read) {
  script.fail("i2c_read_block", 1, 5);
  modules.before_transfer = [first = true]() mutable {
    if (!first) modules.remove(3, 1, 7);
    first = false;
  };
  EXPECT_EQ(read(4), 6u);
  EXPECT_THAT(traces(), ElementsAre(error(116, "Read failed for page 2 offset 90 for 1/7 rc 6\n")));
}

// ---- Writes ----

TEST_F(module_access, write_transfers_one_byte_and_is_traced) {
  EXPECT_EQ(write(0xAB), 0u);
  EXPECT_THAT(calls(transfers), ElementsAre("i2c_write_byte(3, 1, 7, 2, 144, 171)"));
  EXPECT_EQ(module().at(2, 144), 0xAB);
  EXPECT_THAT(
      traces(),
      ElementsAre(
          info(118, "Write page 2 offset 90 val ab on 1/7 rc 0\n").of("lum_controller_interface")));
}

TEST_F(module_access, write_with_length_8_writes_one_byte) {
  EXPECT_EQ(write(0xAB, 8), 0u);
  EXPECT_THAT(calls(transfers), ElementsAre("i2c_write_byte(3, 1, 7, 2, 144, 171)"));
  EXPECT_EQ(module().at(2, 145), 0x22);
}

TEST_F(module_access, write_ignores_a_length_below_1) {
  EXPECT_EQ(write(0xAB, 0), 0u);
  EXPECT_EQ(write(0xAC, -1), 0u);
  EXPECT_THAT(calls({"i2c_write_byte"}), SizeIs(2));
}

TEST_F(module_access, write_without_a_callback_returns_0_without_a_trace) {
  lum_get_ctx()->platform_cbs.i2c_write_byte = nullptr;
  EXPECT_EQ(write(0xAB), 0u);
  EXPECT_THAT(calls(transfers), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(module_access, write_that_succeeds_on_the_third_call_traces_two_failures_then_the_result) {
  script.fail_first("i2c_write_byte", 2, 5);
  EXPECT_EQ(write(0xAB), 0u);
  EXPECT_THAT(
      story({"i2c_write_byte", "usleep"}),
      ElementsAre("i2c_write_byte(3, 1, 7, 2, 144, 171)",
                  "LUM_ERR: Write failed for page 2 offset 90 val ab on 1/7 rc 5. Retry 1\n",
                  "usleep(30000)", "i2c_write_byte(3, 1, 7, 2, 144, 171)",
                  "LUM_ERR: Write failed for page 2 offset 90 val ab on 1/7 rc 5. Retry 2\n",
                  "usleep(30000)", "i2c_write_byte(3, 1, 7, 2, 144, 171)",
                  "LUM_INFO: Write page 2 offset 90 val ab on 1/7 rc 0\n"));
  EXPECT_THAT(traces(), ElementsAre(error(117,
                                          "Write failed for page 2 offset 90 val ab on 1/7 rc 5. "
                                          "Retry 1\n"),
                                    error(117,
                                          "Write failed for page 2 offset 90 val ab on 1/7 rc 5. "
                                          "Retry 2\n"),
                                    info(118, "Write page 2 offset 90 val ab on 1/7 rc 0\n")));
}

TEST_F(module_access, write_that_keeps_failing_makes_five_calls_and_numbers_five_retries) {
  script.fail_first("i2c_write_byte", 4, 5);
  script.fail("i2c_write_byte", 5, 9);
  EXPECT_EQ(write(0xAB), 9u) << "the last callback result";
  EXPECT_THAT(calls({"i2c_write_byte"}), SizeIs(5));
  EXPECT_THAT(calls({"usleep"}), SizeIs(4));
  EXPECT_THAT(
      traces(),
      ElementsAre(error(117, "Write failed for page 2 offset 90 val ab on 1/7 rc 5. Retry 1\n"),
                  error(117, "Write failed for page 2 offset 90 val ab on 1/7 rc 5. Retry 2\n"),
                  error(117, "Write failed for page 2 offset 90 val ab on 1/7 rc 5. Retry 3\n"),
                  error(117, "Write failed for page 2 offset 90 val ab on 1/7 rc 5. Retry 4\n"),
                  error(117, "Write failed for page 2 offset 90 val ab on 1/7 rc 9. Retry 5\n"),
                  info(118, "Write page 2 offset 90 val ab on 1/7 rc 9\n")));
}

// ---- Locks ----

TEST_F(module_access, transfer_does_not_take_the_ports_mutex) {
  watch(data_at(rsip).port_mutex, "port");
  EXPECT_EQ(read(4), 0u);
  EXPECT_EQ(write(1), 0u);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock"}), IsEmpty());
}

TEST_F(module_access, callbacks_are_those_of_the_context_at_the_moment_of_the_call) {
  lum_get_ctx()->platform_cbs.i2c_read_byte = [](uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                                                 uint8_t *value) -> cerrno {
    *value = 0x99;
    return 0;
  };
  EXPECT_EQ(read(1), 0u);
  EXPECT_EQ(buffer[0], 0x99);
}

}  // namespace

}  // namespace module_access_test
