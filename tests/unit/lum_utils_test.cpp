// Trace channels and text utilities.
#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <string>

#include "library.h"
#include "lum_utils/lum_utils.h"
#include "trace_service.h"

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const std::initializer_list<std::string_view> channel_calls = {
    "event_manager_levm_get", "ctrace_set_process_name", "ctrace_open_internal",
    "ctrace_enable_configuration", "tern_syslog"};

std::string opened(const char *name, const char *size) {
  return std::string("ctrace_open_internal(\"") + name + "\", " + size +
         ", 278, \"liblum_ctrace_dir\", 32, 0)";
}

// ---- Opening and closing the channels ----

TEST(trace_channels, open_in_order_error_info_debug_periodic) {
  strncpy(lum_get_ctx()->process_name, "driver", LUM_PROCESS_NAME_SIZE);
  EXPECT_EQ(lum_init_ctrace(client_manager), 0u);
  EXPECT_THAT(
      calls(channel_calls),
      ElementsAre("event_manager_levm_get(0x45)", "ctrace_set_process_name(\"driver\")",
                  opened("lum_error", "0x200000"), "ctrace_enable_configuration(lum_error, set)",
                  opened("lum_info", "0x400000"), "ctrace_enable_configuration(lum_info, set)",
                  opened("lum_debug", "0x400000"), "ctrace_enable_configuration(lum_debug, set)",
                  opened("lum_periodic", "0x80000"),
                  "ctrace_enable_configuration(lum_periodic, set)"));
  EXPECT_EQ(ct_err, error_channel);
  EXPECT_EQ(ct_info, info_channel);
  EXPECT_EQ(ct_debug, debug_channel);
  EXPECT_EQ(ct_periodic, periodic_channel);
}

TEST(trace_channels, handles_are_zero_until_opened) {
  EXPECT_EQ(ct_err, 0u);
  EXPECT_EQ(ct_info, 0u);
  EXPECT_EQ(ct_debug, 0u);
  EXPECT_EQ(ct_periodic, 0u);
}

TEST(trace_channels, failure_opening_info_leaves_error_open_and_later_ones_closed) {
  script.fail("ctrace_open_internal", 2, 5);
  EXPECT_EQ(lum_init_ctrace(client_manager), 0xFFFFFFFFu);
  EXPECT_EQ(ct_err, error_channel);
  EXPECT_EQ(ct_info, 0u);
  EXPECT_EQ(ct_debug, 0u);
  EXPECT_EQ(ct_periodic, 0u);
  EXPECT_THAT(calls({"ctrace_close", "ctrace_dump"}), IsEmpty());
  EXPECT_EQ(calls({"ctrace_open_internal"}).size(), 2u);
  EXPECT_THAT(calls({"tern_syslog"}),
              ElementsAre("tern_syslog(0, \"LUM : Unable to open info ctrace\n\")"));
}

struct channel_failure {
  const char *call;
  unsigned nth;
  const char *text;
};
void PrintTo(const channel_failure &failure, std::ostream *out) {
  *out << failure.call << " " << failure.nth;
}

class trace_channel_failures : public testing::TestWithParam<channel_failure> {};

TEST_P(trace_channel_failures, write_their_text_to_the_system_log) {
  const channel_failure &failure = GetParam();
  script.fail(failure.call, failure.nth, 5);
  EXPECT_EQ(lum_init_ctrace(client_manager), 0xFFFFFFFFu);
  EXPECT_THAT(calls({"tern_syslog"}),
              ElementsAre("tern_syslog(0, \"" + std::string(failure.text) + "\")"));
  EXPECT_EQ(calls({failure.call}).size(), failure.nth);
}

INSTANTIATE_TEST_SUITE_P(
    each, trace_channel_failures,
    testing::Values(
        channel_failure{"ctrace_open_internal", 1, "LUM : Unable to open err ctrace\n"},
        channel_failure{"ctrace_open_internal", 2, "LUM : Unable to open info ctrace\n"},
        channel_failure{"ctrace_open_internal", 3, "LUM : Unable to open debug ctrace\n"},
        channel_failure{"ctrace_open_internal", 4, "LUM : Unable to open periodic ctrace\n"},
        channel_failure{"ctrace_enable_configuration", 1,
                        "LUM : ctrace_enable_configuration failed: err ctrace\n"},
        channel_failure{"ctrace_enable_configuration", 2,
                        "LUM : ctrace_enable_configuration failed: info ctrace\n"},
        channel_failure{"ctrace_enable_configuration", 3,
                        "LUM : ctrace_enable_configuration failed: debug ctrace\n"},
        channel_failure{"ctrace_enable_configuration", 4,
                        "LUM : ctrace_enable_configuration failed: periodic ctrace\n"}));

TEST(trace_channels, failed_configuration_leaves_its_channel_open) {
  script.fail("ctrace_enable_configuration", 3, 5);
  EXPECT_EQ(lum_init_ctrace(client_manager), 0xFFFFFFFFu);
  EXPECT_EQ(ct_debug, debug_channel);
  EXPECT_EQ(ct_periodic, 0u);
}

TEST(trace_channels, null_local_event_manager_is_logged_but_channels_are_opened) {
  script.fail("event_manager_levm_get", 1, 1);
  EXPECT_EQ(lum_init_ctrace(client_manager), 0u);
  EXPECT_THAT(calls({"tern_syslog"}),
              ElementsAre("tern_syslog(0, \"LUM : lum_init_ctrace failed\n\")"));
  EXPECT_THAT(calls({"ctrace_enable_configuration"}),
              ElementsAre("ctrace_enable_configuration(lum_error, null)",
                          "ctrace_enable_configuration(lum_info, null)",
                          "ctrace_enable_configuration(lum_debug, null)",
                          "ctrace_enable_configuration(lum_periodic, null)"));
  EXPECT_EQ(ct_periodic, periodic_channel);
}

TEST(trace_channels, close_dumps_all_then_closes_all_and_keeps_the_handles) {
  open_traces();
  EXPECT_EQ(lum_close_ctrace(), 0u);
  EXPECT_THAT(calls(), ElementsAre("ctrace_dump(lum_error)", "ctrace_dump(lum_info)",
                                   "ctrace_dump(lum_debug)", "ctrace_dump(lum_periodic)",
                                   "ctrace_close(lum_error)", "ctrace_close(lum_info)",
                                   "ctrace_close(lum_debug)", "ctrace_close(lum_periodic)"));
  EXPECT_EQ(ct_err, error_channel);
  EXPECT_EQ(ct_info, info_channel);
  EXPECT_EQ(ct_debug, debug_channel);
  EXPECT_EQ(ct_periodic, periodic_channel);
}

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
  EXPECT_THAT(traces()[2].text, StartsWith("bytes 0x0010 to 0x001F: 0x10 0x11 "));
  EXPECT_THAT(traces()[2].text, HasSubstr(" 0x1f \n"));
}

// ---- The one form of a trace call ----

TEST(trace_calls, have_the_prefix_one_letter_per_argument_and_a_single_1) {
  open_traces();
  const uint8_t byte = 0;
  lum_print_hex_buffer_to_trace(&byte, 1);
  ASSERT_EQ(traces().size(), 1u);
  const trace_line line = traces()[0];
  EXPECT_EQ(line.format, "[%s][tid:%d]%s:printing %d bytes in hex from %p:\n");
  EXPECT_EQ(line.nargs, 5u);
  EXPECT_EQ(line.signature, "sdsdD");
  EXPECT_EQ(line.file, "lum_utils");
  EXPECT_EQ(line.tag, "LUM_INFO");
}

}  // namespace
