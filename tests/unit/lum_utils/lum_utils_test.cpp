// Text utilities.
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string>

#include "library.h"
#include "lum_utils/lum_utils.h"

namespace lum_utils_test {

using namespace support;
using testing::ElementsAre;

namespace {

// ---- State and operation names ----

TEST(state_names, zero_to_four) {
  EXPECT_STREQ(lum_intf_state_to_string(0), "NOT READY");
  EXPECT_STREQ(lum_intf_state_to_string(1), "ADMINDOWN");
  EXPECT_STREQ(lum_intf_state_to_string(2), "OPER DOWN");
  EXPECT_STREQ(lum_intf_state_to_string(3), "OPER UP");
}

TEST(state_names, state_5_is_unknown_and_state_4_is_shutdown) {
  EXPECT_STREQ(lum_intf_state_to_string(5), "UNKNOWN");
  EXPECT_STREQ(lum_intf_state_to_string(0xFFFFFFFF), "UNKNOWN");
  EXPECT_STREQ(lum_intf_state_to_string(4), "SHUTDOWN");
}

TEST(operation_names, resync_end_create_update_get_info_delete) {
  EXPECT_STREQ(lum::ea_operation_name(0), "RESYNC_END");
  EXPECT_STREQ(lum::ea_operation_name(1), "CREATE");
  EXPECT_STREQ(lum::ea_operation_name(2), "UPDATE");
  EXPECT_STREQ(lum::ea_operation_name(3), "GET_INFO");
  EXPECT_STREQ(lum::ea_operation_name(4), "DELETE");
  EXPECT_EQ(lum::ea_operation_name(5), nullptr);
  EXPECT_EQ(lum::ea_operation_name(0xFFFFFFFF), nullptr);
}

// ---- Trimming ----

TEST(trimming, two_letters_and_two_spaces_leave_the_letters) {
  char text[5] = {'a', 'b', ' ', ' ', 'x'};
  lum_trim_trailing_spaces(text, 4);
  EXPECT_STREQ(text, "ab");
  EXPECT_EQ(text[3], ' ');
  EXPECT_EQ(text[4], 'x');
}

TEST(trimming, four_letters_get_the_nul_at_index_4) {
  char text[6] = {'a', 'b', 'c', 'd', 'x', 'y'};
  lum_trim_trailing_spaces(text, 4);
  EXPECT_EQ(std::memcmp(text, "abcd\0y", 6), 0);
}

TEST(trimming, four_spaces_leave_an_empty_text) {
  char text[5] = {' ', ' ', ' ', ' ', 'x'};
  lum_trim_trailing_spaces(text, 4);
  EXPECT_EQ(std::memcmp(text, "\0   x", 5), 0);
}

TEST(trimming, length_0_or_less_leaves_the_buffer_untouched) {
  char text[3] = {' ', ' ', ' '};
  lum_trim_trailing_spaces(text, 0);
  lum_trim_trailing_spaces(text, -1);
  EXPECT_EQ(std::memcmp(text, "   ", 3), 0);
}

TEST(trimming, every_kind_of_white_space_counts) {
  char text[8] = {'a', ' ', '\t', '\n', '\v', '\f', '\r', 'x'};
  lum_trim_trailing_spaces(text, 7);
  EXPECT_STREQ(text, "a");
}

TEST(trimming, bytes_above_127_and_nul_are_no_white_space) {
  char text[4] = {' ', static_cast<char>(0xA0), ' ', 'x'};
  lum_trim_trailing_spaces(text, 3);
  EXPECT_EQ(std::memcmp(text, " \xA0\0x", 4), 0);
  char ends[4] = {'a', '\0', ' ', 'x'};
  lum_trim_trailing_spaces(ends, 3);
  EXPECT_EQ(std::memcmp(ends, "a\0\0x", 4), 0);
}

TEST(trimming, of_one_byte) {
  char blank[2] = {' ', 'x'};
  lum_trim_trailing_spaces(blank, 1);
  EXPECT_EQ(std::memcmp(blank, "\0x", 2), 0);
  char letter[3] = {'a', 'x', 'y'};
  lum_trim_trailing_spaces(letter, 1);
  EXPECT_EQ(std::memcmp(letter, "a\0y", 3), 0);
}

TEST(trimming, neighbours_of_white_space_are_not_cut) {
  for (const char end : {'\x08', '\x0E', '\x1F', '\x85'}) {
    char text[4] = {'a', end, ' ', 'x'};
    lum_trim_trailing_spaces(text, 3);
    EXPECT_EQ(text[1], end);
    EXPECT_EQ(text[2], '\0');
  }
}

// ---- Hex dump ----

class hex_dump : public testing::Test {
 protected:
  void SetUp() override {
    open_traces();
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i);
  }
  std::string heading(int length) const {
    char text[96];
    std::snprintf(text, sizeof text, "printing %d bytes in hex from %p:\n", length,
                  static_cast<const void *>(bytes.data()));
    return text;
  }
  std::array<uint8_t, 64> bytes;
};

constexpr const char *first_line =
    "bytes 0x0000 to 0x000F: 0x00 0x01 0x02 0x03 0x04 0x05 0x06 0x07 0x08 0x09 0x0a 0x0b 0x0c 0x0d "
    "0x0e 0x0f \n";

TEST_F(hex_dump, of_16_bytes_gives_one_line) {
  lum_print_hex_buffer_to_trace(bytes.data(), 16);
  EXPECT_THAT(traces(), ElementsAre(info(273, heading(16)).of("lum_utils"),
                                    info(274, first_line).of("lum_utils")));
  EXPECT_EQ(traces()[0].signature, "sdsdD");
  EXPECT_EQ(traces()[1].signature, "sdsdds");
}

TEST_F(hex_dump, of_20_bytes_gives_still_only_that_line) {
  lum_print_hex_buffer_to_trace(bytes.data(), 20);
  EXPECT_THAT(traces(), ElementsAre(info(273, heading(20)), info(274, first_line)));
}

TEST_F(hex_dump, of_0_bytes_gives_the_heading_and_reads_one_byte) {
  lum_print_hex_buffer_to_trace(bytes.data(), 0);
  EXPECT_THAT(traces(), ElementsAre(info(273, heading(0))));
}

TEST_F(hex_dump, of_a_negative_length_gives_the_heading) {
  lum_print_hex_buffer_to_trace(bytes.data(), -3);
  EXPECT_THAT(traces(), ElementsAre(info(273, heading(-3))));
}

TEST_F(hex_dump, of_15_bytes_gives_no_line) {
  lum_print_hex_buffer_to_trace(bytes.data(), 15);
  EXPECT_THAT(traces(), ElementsAre(info(273, heading(15))));
}

TEST_F(hex_dump, of_33_bytes_gives_two_lines_with_their_ranges) {
  lum_print_hex_buffer_to_trace(bytes.data(), 33);
  ASSERT_EQ(traces().size(), 3u);
  EXPECT_EQ(traces()[1].text, first_line);
  EXPECT_EQ(traces()[2].text,
            "bytes 0x0010 to 0x001F: 0x10 0x11 0x12 0x13 0x14 0x15 0x16 0x17 0x18 0x19 0x1a 0x1b "
            "0x1c 0x1d 0x1e 0x1f \n");
}

TEST_F(hex_dump, of_bytes_above_127_shows_two_digits_each) {
  for (std::size_t i = 0; i < 16; ++i) bytes[i] = static_cast<uint8_t>(0xF0 + i);
  lum_print_hex_buffer_to_trace(bytes.data(), 16);
  EXPECT_EQ(traces().back().text,
            "bytes 0x0000 to 0x000F: 0xf0 0xf1 0xf2 0xf3 0xf4 0xf5 0xf6 0xf7 0xf8 0xf9 0xfa 0xfb "
            "0xfc 0xfd 0xfe 0xff \n");
}

TEST_F(hex_dump, without_a_buffer_gives_the_heading) {
  lum_print_hex_buffer_to_trace(nullptr, 0);
  lum_print_hex_buffer_to_trace(nullptr, 20);
  EXPECT_THAT(traces(), ElementsAre(info(273, "printing 0 bytes in hex from (nil):\n"),
                                    info(273, "printing 20 bytes in hex from (nil):\n")));
}

// ---- The one byte that a dump of none reads ----

// A page that can be read, and behind it one that cannot.
class hex_dump_at_the_edge : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    open_traces();
    const auto page = static_cast<std::size_t>(getpagesize());
    void *pages = mmap(nullptr, 2 * page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    edge = static_cast<uint8_t *>(pages) + page;
    ASSERT_EQ(mprotect(edge, page, PROT_NONE), 0);
  }
  uint8_t *edge = nullptr;
};

TEST_P(hex_dump_at_the_edge, reads_the_first_byte_and_no_more) {
  lum_print_hex_buffer_to_trace(edge - 1, GetParam());
  EXPECT_THAT(traces(), ElementsAre(starting("printing " + std::to_string(GetParam()) + " bytes")));
}

TEST_P(hex_dump_at_the_edge, of_a_byte_that_cannot_be_read_ends_the_process) {
  EXPECT_DEATH(lum_print_hex_buffer_to_trace(edge, GetParam()), "");
}

INSTANTIATE_TEST_SUITE_P(lengths, hex_dump_at_the_edge, testing::Values(0, -3));

}  // namespace

}  // namespace lum_utils_test
