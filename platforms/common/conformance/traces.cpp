// The trace facility: ctrace.h.
#include "ctrace.h"

#include <string>
#include <thread>

#include "check.h"
#include "tern.h"

namespace conformance {
namespace {

constexpr char digest[] = "0123456789abcdef0123456789abcdef";

ctrace_handle open_channel(const char *name) {
  ctrace_handle handle = 0;
  const cerrno rc = ctrace_open_internal(&handle, name, 65536, 278, "liblum_ctrace_dir", digest, 0);
  require(rc == 0, "the channel %s is not opened: %u", name, rc);
  require(handle != 0, "the channel %s is opened with the handle 0", name);
  return handle;
}

void trace(ctrace_handle handle, const char *text) {
  ctrace_internal(handle, 1, 4, 1, "sdss", "[%s][tid:%d]%s: %s\n", "conformance", tern_gettid(),
                  "LUM_INFO", text);
}

void no_channel_is_needed() {
  start_platform();
  trace(0, "a line before a channel is open");
  ctrace_dump(0);
  ctrace_close(0);
}

void channels_have_handles_of_their_own() {
  const lum_infra_params &params = start_platform();
  ctrace_set_process_name("conformance");
  const ctrace_handle first = open_channel("lum_error");
  require(ctrace_enable_configuration(first, event_manager_levm_get(params.evm)) == 0,
          "the channel cannot be configured");
  require(ctrace_enable_configuration(first, nullptr) == 0,
          "the channel cannot be without an event manager");
  require(first != open_channel("lum_info"), "two channels have one handle");
}

void a_line_is_read_during_the_call_only() {
  start_platform();
  const ctrace_handle handle = open_channel("lum_error");
  for (int i = 0; i < 1000; ++i) trace(handle, std::string(100, 'x').c_str());
  ctrace_dump(handle);
}

void closed_channels_take_lines() {
  start_platform();
  const ctrace_handle handle = open_channel("lum_error");
  ctrace_close(handle);
  trace(handle, "a line after the channel was closed");
  ctrace_dump(handle);
  ctrace_close(handle);
}

void threads_trace_at_once() {
  start_platform();
  const ctrace_handle handle = open_channel("lum_info");
  constexpr int crowd = 4;
  std::vector<std::thread> threads;
  threads.reserve(crowd);
  for (int t = 0; t < crowd; ++t) {
    threads.emplace_back([handle] {
      for (int i = 0; i < 500; ++i) trace(handle, "a line of several threads");
    });
  }
  ctrace_dump(handle);
  ctrace_close(handle);
  for (std::thread &one : threads) one.join();
}

}  // namespace

std::vector<check> trace_checks() {
  return {{"traces.need_no_channel", no_channel_is_needed},
          {"traces.have_handles_of_their_own", channels_have_handles_of_their_own},
          {"traces.read_lines_during_the_call_only", a_line_is_read_during_the_call_only},
          {"traces.take_lines_of_closed_channels", closed_channels_take_lines},
          {"traces.take_lines_of_several_threads", threads_trace_at_once}};
}

}  // namespace conformance
