// Library context and start-up.
#include <gmock/gmock.h>
#include <signal.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "library.h"
#include "lum_api/lum_api.h"
#include "lum_modules.h"

namespace start_up_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr const char *already_done = "init already done, returning EOK!\n";

// The blocked-signal mask of the polling thread, as the kernel knows it.
uint64_t blocked_in_polling_thread() {
  for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(task.path() / "comm"), name);
    if (name != "lum_dom_thread") continue;
    std::ifstream status(task.path() / "status");
    for (std::string line; std::getline(status, line);) {
      if (line.rfind("SigBlk:", 0) == 0) return std::stoull(line.substr(7), nullptr, 16);
    }
  }
  return 0;
}

// A line on an info channel that could not be opened.
line_matcher unopened(uint32_t point, const char *text) {
  return {"closed", "LUM_INFO", point, text};
}

uint64_t bit_of(int signal) { return uint64_t{1} << (signal - 1); }

// ---- lum_lib_init ----

TEST(lib_init, registers_the_checkpoint_table) {
  EXPECT_EQ(lum_lib_init(), 0u);
  EXPECT_THAT(calls(), ElementsAre("chkpt_appdesc_init()", "strncpy_s(24, 23)", "chkpt_init(0)",
                                   "chkpt_tbldesc_init()", "chkpt_register(40)"));
  EXPECT_EQ(lum_get_ctx()->chkpt_table, 0xC0DEu);
}

TEST(lib_init, returns_the_checkpoint_services_code) {
  script.fail("chkpt_init", 1, 77);
  EXPECT_EQ(lum_lib_init(), 77u);
  script.forget();
  script.fail("chkpt_register", 1, 78);
  EXPECT_EQ(lum_lib_init(), 78u);
}

TEST(lib_init, restart_indication_of_the_checkpoint_service_is_discarded) {
  checkpoints.restart = 1;
  EXPECT_EQ(boot(), 0u);
  EXPECT_EQ(lum_get_ctx()->restart, 0u);
}

TEST(lib_init, failing_mutex_attributes_are_ignored) {
  script.fail("pthread_mutexattr_init", 1, ENOMEM);
  EXPECT_EQ(boot(), 0u);
}

TEST(lib_init, failing_mutex_type_is_ignored) {
  script.fail("pthread_mutexattr_settype", 1, EINVAL);
  EXPECT_EQ(boot(), 0u);
}

// ---- The context ----

TEST(context, is_one_record_zero_at_load) {
  lum_ctx *context = lum_get_ctx();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(lum_get_ctx(), context);
  const lum_ctx zero = {};
  EXPECT_EQ(std::memcmp(context, &zero, sizeof zero), 0);
}

TEST(context, takes_the_parameters_over) {
  lum_infra_params params = parameters();
  params.restart = 3;
  params.client_data = 0xCAFE;
  std::strcpy(params.process_name, "optics_driver");
  lum_get_ctx()->resync = 1;
  lum_get_ctx()->dom_reserved = 1;
  EXPECT_EQ(boot(params), 0u);
  const lum_ctx &context = *lum_get_ctx();
  EXPECT_EQ(context.evm, client_manager);
  EXPECT_EQ(context.restart, 3u);
  EXPECT_EQ(context.client_data, 0xCAFEu);
  EXPECT_STREQ(context.process_name, "optics_driver");
  EXPECT_EQ(context.resync, 0u);
  EXPECT_EQ(context.dom_reserved, 0u);
  EXPECT_EQ(context.dom_thread_started, 1u);
  EXPECT_EQ(context.controller_count, 0u);
}

TEST(context, callback_table_is_copied_by_value) {
  EXPECT_EQ(boot(), 0u);
  const lum_platform_cbs expected = full_callbacks();
  parameter_callbacks() = {};
  EXPECT_EQ(std::memcmp(&lum_get_ctx()->platform_cbs, &expected, sizeof expected), 0);
}

TEST(context, empty_process_name_yields_lum_library) {
  lum_infra_params params = parameters();
  std::strcpy(params.process_name + 1, "hidden");
  EXPECT_EQ(boot(params), 0u);
  EXPECT_STREQ(lum_get_ctx()->process_name, "lum_library");
  EXPECT_THAT(calls({"strncpy_s"}), Contains("strncpy_s(255, 254)"));
  EXPECT_THAT(calls(), Contains("ctrace_set_process_name(\"lum_library\")"));
}

TEST(context, process_name_of_256_bytes_without_terminator_is_cut_to_255) {
  lum_infra_params params = parameters();
  std::memset(params.process_name, 'n', sizeof params.process_name);
  EXPECT_EQ(boot(params), 0u);
  EXPECT_EQ(std::string(lum_get_ctx()->process_name), std::string(255, 'n'));
  EXPECT_THAT(calls({"strncpy_s"}), Contains("strncpy_s(256, 255)"));
}

// ---- The steps of lum_infra_init ----

TEST(infra_init, traces_its_progress_in_order) {
  EXPECT_EQ(boot(), 0u);
  EXPECT_THAT(traces(), lines_in_order({info("In lum_infra_init ctrace init done!\n").of("lum_api"),
                                        info("PD Data Module module initialisation succeeded\n"),
                                        info("PD Module module initialisation succeeded\n"),
                                        info("SERVER module initialisation succeeded\n"),
                                        info("rc of modules init = 0\n").of("lum_api"),
                                        info("Recovery complete \n"),
                                        info("Checkpoint recover done with rc 0.\n").of("lum_api"),
                                        info("DOM thread created\n").of("lum_api")}));
  EXPECT_THAT(traces(), Not(Contains(an_error())));
}

TEST(infra_init, calls_the_platform_in_order) {
  lum_infra_params params = parameters();
  params.pm_alarm_test = 1;
  EXPECT_EQ(boot(params), 0u);
  EXPECT_THAT(
      calls(),
      texts_in_order({"chkpt_register(40)", "strncpy_s(255, 254)", "event_manager_levm_get(0x45)",
                      "ctrace_set_process_name(\"lum_library\")",
                      "ctrace_enable_configuration(lum_periodic, set)", "wavl_init(2, 0)",
                      "event_async_attach(0x45, 128, 0)", "chkpt_iterate_start(0xc0de)",
                      "chkpt_iterate_end(0x17e2)", "pthread_sigmask(SIG_BLOCK, {6 10}, null)",
                      "pthread_create(null, null)",
                      "test_event_init_tests_v2(\"test_suite_0\", 0, 0x45, 1)"}));
}

TEST(infra_init, failing_trace_channels_are_ignored) {
  script.fail("ctrace_open_internal", 2, 5);
  EXPECT_EQ(boot(), 0u);
  EXPECT_EQ(ct_err, 0x101u);
  EXPECT_EQ(ct_info, 0u);
  EXPECT_EQ(lum_get_ctx()->dom_thread_started, 1u);
  EXPECT_THAT(traces(), lines_in_order({unopened(2, "In lum_infra_init ctrace init done!\n"),
                                        unopened(3, "rc of modules init = 0\n"),
                                        unopened(4, "Checkpoint recover done with rc 0.\n"),
                                        unopened(7, "DOM thread created\n")}));
}

TEST(infra_init, modules_get_the_event_manager_and_the_restart_flag) {
  static event_manager seen_manager;
  static uint32_t seen_restart;
  lum::lum_module_table()[1].init = [](event_manager evm, uint32_t restart) -> cerrno {
    seen_manager = evm;
    seen_restart = restart;
    return 0;
  };
  lum_infra_params params = parameters();
  params.restart = 9;
  EXPECT_EQ(boot(params), 0u);
  EXPECT_EQ(seen_manager, client_manager);
  EXPECT_EQ(seen_restart, 9u);
}

TEST(infra_init, failing_module_leaves_later_ones_uninitialised_and_start_up_goes_on) {
  lum::lum_module_table()[1].init = [](event_manager, uint32_t) -> cerrno { return 55; };
  EXPECT_EQ(boot(), 0u);
  EXPECT_EQ(lum::lum_module_table()[0].init_done, 1u);
  EXPECT_EQ(lum::lum_module_table()[1].init_done, 0u);
  EXPECT_EQ(lum::lum_module_table()[2].init_done, 0u);
  EXPECT_THAT(calls({"event_async_attach"}), IsEmpty());
  EXPECT_THAT(traces(), lines_in_order({error("PD Module module initialisation has failed\n"),
                                        info("rc of modules init = 55\n"),
                                        info("Checkpoint recover done with rc 0.\n"),
                                        info("DOM thread created\n")}));
}

TEST(infra_init, failing_server_gives_32_in_the_trace_and_0_to_the_caller) {
  script.fail("event_async_attach", 1, 1);
  EXPECT_EQ(boot(), 0u);
  EXPECT_THAT(traces(), lines_in_order({error("SERVER module initialisation has failed\n"),
                                        info("rc of modules init = 32\n")}));
}

TEST(infra_init, failing_recovery_is_only_traced) {
  script.fail("chkpt_iterate_start", 1, 61);
  EXPECT_EQ(boot(), 0u);
  EXPECT_THAT(traces(), lines_in_order({info("Checkpoint recover done with rc 61.\n"),
                                        info("DOM thread created\n")}));
}

TEST(infra_init, polling_thread_running_already_returns_the_recovery_code_without_test_hooks) {
  lum_get_ctx()->dom_thread_started = 1;
  script.fail("chkpt_iterate_end", 1, 62);
  lum_infra_params params = parameters();
  params.pm_alarm_test = 1;
  lum_lib_init();
  EXPECT_EQ(lum_infra_init(&params), 62u);
  EXPECT_THAT(traces(), Contains(info("DOM thread running already.\n").of("lum_api")));
  EXPECT_THAT(calls({"pthread_create", "pthread_sigmask", "test_event_init_tests_v2"}), IsEmpty());
  EXPECT_EQ(lum_infra_init(&params), 0u) << "the lock must have been released";
}

TEST(infra_init, failed_thread_creation_is_traced_and_returned) {
  script.fail("pthread_create", 1, EAGAIN);
  EXPECT_EQ(boot(), static_cast<uint32_t>(EAGAIN));
  EXPECT_EQ(lum_get_ctx()->dom_thread_started, 0u);
  EXPECT_THAT(traces(),
              Contains(error("LUM DOM thread create failed rc:0xb[error 11]\n").of("lum_api")));
  EXPECT_THAT(traces(), Not(Contains(info("DOM thread created\n"))));
}

TEST(infra_init, test_hooks_are_installed_also_after_a_failed_thread_creation) {
  script.fail("pthread_create", 1, EAGAIN);
  lum_infra_params params = parameters();
  params.pm_alarm_test = 2;
  EXPECT_EQ(boot(params), static_cast<uint32_t>(EAGAIN));
  EXPECT_THAT(calls({"test_event_init_tests_v2"}),
              ElementsAre("test_event_init_tests_v2(\"test_suite_0\", 0, 0x45, 1)"));
}

TEST(infra_init, goes_on_when_one_step_after_the_other_fails) {
  lum::lum_module_table()[1].init = [](event_manager, uint32_t) -> cerrno { return 55; };
  script.fail("chkpt_iterate_start", 1, 61);
  script.fail("pthread_create", 1, EAGAIN);
  lum_infra_params params = parameters();
  params.pm_alarm_test = 1;
  EXPECT_EQ(boot(params), static_cast<uint32_t>(EAGAIN));
  EXPECT_THAT(traces(), lines_in_order({info("rc of modules init = 55\n"),
                                        info("Checkpoint recover done with rc 61.\n"),
                                        error("LUM DOM thread create failed rc:0xb[error 11]\n")}));
  EXPECT_THAT(calls({"test_event_init_tests_v2"}), SizeIs(1));

  clear_record();
  EXPECT_EQ(lum_infra_init(&params), 0u);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(info(already_done)));
}

TEST(infra_init, test_hooks_are_not_installed_unasked) {
  EXPECT_EQ(boot(), 0u);
  EXPECT_THAT(calls({"test_event_init_tests_v2"}), IsEmpty());
}

// ---- The second call ----

TEST(infra_init, second_call_returns_0_and_changes_nothing) {
  EXPECT_EQ(boot(), 0u);
  const lum_ctx before = *lum_get_ctx();
  clear_record();
  lum_infra_params other = parameters();
  other.evm = 0x99;
  other.restart = 1;
  other.pm_alarm_test = 1;
  std::strcpy(other.process_name, "another");
  EXPECT_EQ(lum_infra_init(&other), 0u);
  EXPECT_EQ(std::memcmp(lum_get_ctx(), &before, sizeof before), 0);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(info(already_done).of("lum_api")));
}

TEST(infra_init, second_call_after_a_failing_module_returns_0_and_does_not_retry) {
  script.fail("event_async_attach", 1, 1);
  EXPECT_EQ(boot(), 0u);
  clear_record();
  const lum_infra_params params = parameters();
  EXPECT_EQ(lum_infra_init(&params), 0u);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(info(already_done)));
  EXPECT_EQ(lum::lum_module_table()[2].init_done, 0u);
}

TEST(infra_init, second_call_after_a_failed_thread_creation_returns_0_and_does_not_retry) {
  script.fail("pthread_create", 1, EAGAIN);
  EXPECT_EQ(boot(), static_cast<uint32_t>(EAGAIN));
  clear_record();
  const lum_infra_params params = parameters();
  EXPECT_EQ(lum_infra_init(&params), 0u);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(info(already_done)));
  EXPECT_EQ(lum_get_ctx()->dom_thread_started, 0u);
}

// ---- Signals ----

TEST(infra_init, blocks_two_signals_in_the_caller_and_in_the_polling_thread) {
  EXPECT_EQ(boot(), 0u);
  sigset_t mine;
  pthread_sigmask(SIG_SETMASK, nullptr, &mine);
  const uint64_t both = bit_of(SIGRTMIN + 6) | bit_of(SIGRTMIN + 10);
  EXPECT_EQ(sigismember(&mine, SIGRTMIN + 6), 1);
  EXPECT_EQ(sigismember(&mine, SIGRTMIN + 10), 1);
  EXPECT_EQ(sigismember(&mine, SIGRTMIN + 7), 0);
  EXPECT_EQ(blocked_in_polling_thread() & both, both);
}

TEST(infra_init, signals_stay_blocked_after_a_failed_thread_creation) {
  script.fail("pthread_create", 1, EAGAIN);
  EXPECT_EQ(boot(), static_cast<uint32_t>(EAGAIN));
  EXPECT_THAT(calls({"pthread_sigmask"}), SizeIs(1));
  sigset_t mine;
  pthread_sigmask(SIG_SETMASK, nullptr, &mine);
  EXPECT_EQ(sigismember(&mine, SIGRTMIN + 6), 1);
  EXPECT_EQ(sigismember(&mine, SIGRTMIN + 10), 1);
}

using infra_init_death = testing::Test;

TEST_F(infra_init_death, failing_sigemptyset_ends_the_process) {
  script.fail("sigemptyset", 1, 0xFFFFFFFF);
  EXPECT_DEATH(boot(), "sigemptyset.*Assertion|Assertion.*sigemptyset");
}

TEST_F(infra_init_death, failing_first_sigaddset_ends_the_process) {
  script.fail("sigaddset", 1, 0xFFFFFFFF);
  EXPECT_DEATH(boot(), "Assertion.*sigaddset");
}

TEST_F(infra_init_death, failing_second_sigaddset_ends_the_process) {
  script.fail("sigaddset", 2, 0xFFFFFFFF);
  EXPECT_DEATH(boot(), "Assertion.*sigaddset");
}

TEST_F(infra_init_death, failing_sigmask_ends_the_process) {
  script.fail("pthread_sigmask", 1, EINVAL);
  EXPECT_DEATH(boot(), "Assertion.*pthread_sigmask");
}

}  // namespace

}  // namespace start_up_test
