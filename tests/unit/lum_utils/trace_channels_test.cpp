// Opening and closing the trace channels, and the one form of a trace call.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "library.h"
#include "trace_service.h"

namespace trace_channels_test {

using namespace support;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const std::initializer_list<std::string_view> channel_calls = {
    "event_manager_levm_get", "ctrace_set_process_name", "ctrace_open_internal",
    "ctrace_enable_configuration", "tern_syslog"};

using handle_list = std::vector<ctrace_handle>;
handle_list handles() { return {ct_err, ct_info, ct_debug, ct_periodic}; }

// The handles when only the first `count` channels have been opened.
handle_list opened_first(std::size_t count) {
  handle_list opened = {error_channel, info_channel, debug_channel, periodic_channel};
  std::fill(opened.begin() + static_cast<std::ptrdiff_t>(count), opened.end(), 0);
  return opened;
}

std::string opened(const char *name, const char *size) {
  return std::string("ctrace_open_internal(\"") + name + "\", " + size +
         ", 278, \"liblum_ctrace_dir\", 32, 0)";
}

// ---- Opening ----

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
  EXPECT_EQ(handles(), opened_first(4));
}

TEST(trace_channels, handles_are_zero_until_opened) { EXPECT_EQ(handles(), opened_first(0)); }

TEST(trace_channels, share_the_digest_of_the_catalogue) {
  open_traces();
  ASSERT_THAT(channel_digests, SizeIs(4));
  EXPECT_THAT(channel_digests, Each(channel_digests[0]));
  EXPECT_THAT(channel_digests[0], SizeIs(32));
  EXPECT_EQ(channel_digests[0].find_first_not_of("0123456789abcdef"), std::string::npos);
}

// ---- Failures ----

struct channel_failure {
  unsigned channel;
  const char *text;
};
void PrintTo(const channel_failure &failure, std::ostream *out) { *out << failure.channel; }

class channel_failures : public testing::TestWithParam<channel_failure> {
 protected:
  // Fails the channel's nth call of this name.
  static void fail(const char *call) {
    script.fail(call, GetParam().channel, 5);
    EXPECT_EQ(lum_init_ctrace(client_manager), 0xFFFFFFFFu);
    EXPECT_THAT(calls({"tern_syslog"}),
                ElementsAre("tern_syslog(0, \"" + std::string(GetParam().text) + "\")"));
    EXPECT_THAT(calls({"ctrace_open_internal"}), SizeIs(GetParam().channel));
    EXPECT_THAT(calls({"ctrace_close", "ctrace_dump"}), IsEmpty());
  }
};

using failed_openings = channel_failures;

TEST_P(failed_openings, leave_the_earlier_channels_open_and_the_later_ones_closed) {
  fail("ctrace_open_internal");
  EXPECT_THAT(calls({"ctrace_enable_configuration"}), SizeIs(GetParam().channel - 1));
  EXPECT_EQ(handles(), opened_first(GetParam().channel - 1));
}

INSTANTIATE_TEST_SUITE_P(each, failed_openings,
                         testing::Values(channel_failure{1, "LUM : Unable to open err ctrace\n"},
                                         channel_failure{2, "LUM : Unable to open info ctrace\n"},
                                         channel_failure{3, "LUM : Unable to open debug ctrace\n"},
                                         channel_failure{
                                             4, "LUM : Unable to open periodic ctrace\n"}));

using failed_configurations = channel_failures;

TEST_P(failed_configurations, leave_their_own_channel_open_and_the_later_ones_closed) {
  fail("ctrace_enable_configuration");
  EXPECT_THAT(calls({"ctrace_enable_configuration"}), SizeIs(GetParam().channel));
  EXPECT_EQ(handles(), opened_first(GetParam().channel));
}

INSTANTIATE_TEST_SUITE_P(
    each, failed_configurations,
    testing::Values(channel_failure{1, "LUM : ctrace_enable_configuration failed: err ctrace\n"},
                    channel_failure{2, "LUM : ctrace_enable_configuration failed: info ctrace\n"},
                    channel_failure{3, "LUM : ctrace_enable_configuration failed: debug ctrace\n"},
                    channel_failure{
                        4, "LUM : ctrace_enable_configuration failed: periodic ctrace\n"}));

TEST(trace_channels, null_local_event_manager_is_logged_but_channels_are_opened) {
  script.fail("event_manager_levm_get", 1, 1);
  EXPECT_EQ(lum_init_ctrace(client_manager), 0u);
  const auto made = calls(channel_calls);
  ASSERT_GE(made.size(), 3u);
  EXPECT_THAT(std::vector(made.begin(), made.begin() + 3),
              ElementsAre("event_manager_levm_get(0x45)",
                          "tern_syslog(0, \"LUM : lum_init_ctrace failed\n\")",
                          "ctrace_set_process_name(\"\")"));
  EXPECT_THAT(calls({"tern_syslog"}), SizeIs(1));
  EXPECT_THAT(calls({"ctrace_enable_configuration"}),
              ElementsAre("ctrace_enable_configuration(lum_error, null)",
                          "ctrace_enable_configuration(lum_info, null)",
                          "ctrace_enable_configuration(lum_debug, null)",
                          "ctrace_enable_configuration(lum_periodic, null)"));
  EXPECT_EQ(handles(), opened_first(4));
}

TEST(trace_channels, null_local_event_manager_and_a_failed_opening_are_both_logged) {
  script.fail("event_manager_levm_get", 1, 1);
  script.fail("ctrace_open_internal", 1, 5);
  EXPECT_EQ(lum_init_ctrace(client_manager), 0xFFFFFFFFu);
  EXPECT_THAT(calls({"tern_syslog"}),
              ElementsAre("tern_syslog(0, \"LUM : lum_init_ctrace failed\n\")",
                          "tern_syslog(0, \"LUM : Unable to open err ctrace\n\")"));
}

// ---- Closing ----

TEST(trace_channels, close_dumps_all_then_closes_all_and_keeps_the_handles) {
  open_traces();
  EXPECT_EQ(lum_close_ctrace(), 0u);
  EXPECT_THAT(calls(), ElementsAre("ctrace_dump(lum_error)", "ctrace_dump(lum_info)",
                                   "ctrace_dump(lum_debug)", "ctrace_dump(lum_periodic)",
                                   "ctrace_close(lum_error)", "ctrace_close(lum_info)",
                                   "ctrace_close(lum_debug)", "ctrace_close(lum_periodic)"));
  EXPECT_EQ(handles(), opened_first(4));
}

TEST(trace_channels, close_takes_those_that_were_not_opened_with_the_others) {
  script.fail("ctrace_open_internal", 2, 5);
  EXPECT_EQ(lum_init_ctrace(client_manager), 0xFFFFFFFFu);
  EXPECT_EQ(lum_close_ctrace(), 0u);
  EXPECT_THAT(calls({"ctrace_dump", "ctrace_close"}),
              ElementsAre("ctrace_dump(lum_error)", "ctrace_dump(closed)", "ctrace_dump(closed)",
                          "ctrace_dump(closed)", "ctrace_close(lum_error)", "ctrace_close(closed)",
                          "ctrace_close(closed)", "ctrace_close(closed)"));
  EXPECT_EQ(handles(), opened_first(1));
}

TEST(trace_channels, close_without_an_opening_goes_through_all_four) {
  EXPECT_EQ(lum_close_ctrace(), 0u);
  EXPECT_THAT(calls(),
              ElementsAre("ctrace_dump(closed)", "ctrace_dump(closed)", "ctrace_dump(closed)",
                          "ctrace_dump(closed)", "ctrace_close(closed)", "ctrace_close(closed)",
                          "ctrace_close(closed)", "ctrace_close(closed)"));
  EXPECT_EQ(handles(), opened_first(0));
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

}  // namespace trace_channels_test
