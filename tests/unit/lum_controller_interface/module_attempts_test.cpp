// What stands between the attempts of one transfer.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "base/shared.h"
#include "blocks.h"
#include "library.h"

namespace module_attempts_test {

using namespace support;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr uint32_t rsip = 0x30107;

class module_attempts : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    add_port(rsip);
    module().put(2, 144, {0x11, 0x22, 0x33, 0x44});
    clear_record();
  }
  static module_memory &module() { return modules.at(3, 1, 7); }
  cerrno read(int32_t length) {
    return lum_i2c_read_write(1, 3, 1, 7, 2, 144, length, buffer.data());
  }
  cerrno write(uint8_t value) { return lum_i2c_read_write(0, 3, 1, 7, 2, 144, 1, &value); }
  // What the caller's buffer holds when the second attempt begins.
  std::vector<uint8_t> buffer_at_second_attempt(const char *call, int32_t length) {
    std::vector<uint8_t> seen;
    module().leave_on_failure(0x5A);
    script.fail(call, 1, 5);
    modules.before_transfer = [&, attempt = 0]() mutable {
      if (++attempt == 2) seen = buffer;
    };
    EXPECT_EQ(read(length), 0u);
    modules.before_transfer = nullptr;
    return seen;
  }
  std::vector<uint8_t> buffer = std::vector<uint8_t>(6, 0xEE);
};

// ---- The caller's buffer ----

TEST_F(module_attempts, failed_attempts_bytes_are_in_the_buffer_before_the_next_one) {
  EXPECT_THAT(buffer_at_second_attempt("i2c_read_block", 4),
              ElementsAre(0x5A, 0x5A, 0x5A, 0x5A, 0xEE, 0xEE));
  EXPECT_THAT(buffer, ElementsAre(0x11, 0x22, 0x33, 0x44, 0xEE, 0xEE));
}

TEST_F(module_attempts, failed_attempts_byte_is_in_the_buffer_before_the_next_one) {
  EXPECT_THAT(buffer_at_second_attempt("i2c_read_byte", 1),
              ElementsAre(0x5A, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE));
  EXPECT_THAT(buffer, ElementsAre(0x11, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE));
}

// Writes on its first call only, and returns another code each time.
cerrno delivers_once(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, int32_t length,
                     uint8_t *destination) {
  static uint32_t call = 0;
  if (++call == 1) std::fill_n(destination, length, uint8_t{0x5A});
  return 10 + call;
}

TEST_F(module_attempts, what_one_attempt_delivered_lasts_to_the_end_of_the_read) {
  lum_get_ctx()->platform_cbs.i2c_read_block = delivers_once;
  EXPECT_EQ(read(6), 15u);
  EXPECT_THAT(buffer, Each(0x5A));
}

// ---- Access, looked at once ----

const auto forbid = [] { lum::shared_store(data_at(rsip).transceiver_disabled, 1); };
const auto remove_port = [] { lum_ports_db_remove_entry(rsip); };

class access_lost_on_the_way : public module_attempts,
                               public testing::WithParamInterface<void (*)()> {
 protected:
  void SetUp() override {
    module_attempts::SetUp();
    modules.before_transfer = [first = true]() mutable {
      if (first) GetParam()();
      first = false;
    };
  }
  // Not the database's own.
  static std::vector<trace_line> lines() {
    auto all = traces();
    std::erase_if(all, [](const trace_line &line) { return line.file == "lum_ports_db"; });
    return all;
  }
};

TEST_P(access_lost_on_the_way, does_not_end_a_read) {
  script.fail("i2c_read_block", 1, 5);
  EXPECT_EQ(read(4), 0u);
  EXPECT_THAT(calls({"i2c_read_block"}), SizeIs(2));
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_P(access_lost_on_the_way, does_not_end_a_write) {
  script.fail("i2c_write_byte", 1, 5);
  EXPECT_EQ(write(0xAB), 0u);
  EXPECT_EQ(module().at(2, 144), 0xAB);
  EXPECT_THAT(
      lines(),
      ElementsAre(error(117, "Write failed for page 2 offset 90 val ab on 1/7 rc 5. Retry 1\n"),
                  info(118, "Write page 2 offset 90 val ab on 1/7 rc 0\n")));
}

INSTANTIATE_TEST_SUITE_P(each_way, access_lost_on_the_way, testing::Values(+forbid, +remove_port));

// ---- The scratch buffer ----

constexpr int32_t longest_on_stack = 256;

class scratch_buffer : public module_attempts, public testing::WithParamInterface<unsigned> {
 protected:
  // Blocks taken by a read of that length, with as many failures as the test is for.
  static unsigned blocks_for(int32_t length) {
    std::vector<uint8_t> destination(static_cast<size_t>(length));
    script.fail_first("i2c_read_block", GetParam(), 5);
    const block_watch blocks;
    EXPECT_EQ(lum_i2c_read_write(1, 3, 1, 7, 2, 144, length, destination.data()),
              GetParam() < 5 ? 0u : 5u);
    EXPECT_THAT(blocks.live(), IsEmpty());
    return static_cast<unsigned>(blocks.taken());
  }
};

TEST_P(scratch_buffer, is_no_block_for_256_bytes) { EXPECT_EQ(blocks_for(longest_on_stack), 0u); }

TEST_P(scratch_buffer, is_one_block_that_is_freed_for_more) {
  EXPECT_EQ(blocks_for(longest_on_stack + 1), 1u);
}

INSTANTIATE_TEST_SUITE_P(each_number_of_failures, scratch_buffer, testing::Values(0u, 2u, 4u, 5u));

// Leaves what it is given as it is, which it shows.
std::vector<uint8_t> given;
cerrno leaves_what_is_there(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, int32_t length,
                            uint8_t *destination) {
  given.assign(destination, destination + length);
  std::fill_n(destination, length, uint8_t{0x5A});
  return 0;
}

TEST_F(module_attempts, scratch_buffer_is_zero_whatever_was_read_before) {
  lum_get_ctx()->platform_cbs.i2c_read_block = leaves_what_is_there;
  std::vector<uint8_t> destination(longest_on_stack + 1);
  for (const int32_t length : {longest_on_stack, 2, longest_on_stack, longest_on_stack + 1}) {
    EXPECT_EQ(lum_i2c_read_write(1, 3, 1, 7, 2, 144, length, destination.data()), 0u);
    EXPECT_THAT(given, SizeIs(length));
    EXPECT_THAT(given, Each(0));
  }
}

TEST_F(module_attempts, write_takes_no_block) {
  const block_watch blocks;
  EXPECT_EQ(write(0xAB), 0u);
  EXPECT_EQ(blocks.taken(), 0u);
}

}  // namespace

}  // namespace module_attempts_test
