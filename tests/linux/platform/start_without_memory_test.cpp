// What a start leaves behind when memory runs out in the middle of it. Each start is the first of a
// process of its own, which has nothing from an earlier one and may end without ending the test.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>

#include "chkpt.h"
#include "interface_manager/failing_memory.h"
#include "lum_linux.h"
#include "lum_linux/events.h"
#include "small_node.h"
#include "test_folder.h"

namespace {

using small_node::port;

constexpr uint64_t all = UINT64_MAX;

// With a module of each kind that needs memory of its own.
const std::string two_ports = small_node::with(
    port(1, "module = '1.eeprom'") + port(2, "backend = 'simulated'\nmodule = '2.toml'"),
    "name = 'a node whose name needs memory to be kept'");

// Of the many allocations of a start, one in so many is made to fail.
#ifdef LUM_SANITIZED
constexpr uint64_t stride = 7;  // a process is dear then
#else
constexpr uint64_t stride = 1;
#endif

// How a process ends that has had too little memory.
enum outcome { recovered = 0, had_enough = 1, wrong = 2 };

outcome say_wrong(const char *what, int code = 0) {
  std::fprintf(stderr, "%s (%d)\n", what, code);
  return wrong;
}

int run_in_process(const std::function<outcome()> &what) {
  const pid_t child = fork();
  if (child == 0) _exit(what());
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Tries with more and more allocations served until no more are asked for.
void for_every_allocation(const std::function<outcome(uint64_t served)> &attempt, uint64_t fewest,
                          uint64_t step = 1) {
  uint64_t served = 0;
  for (int ended = recovered; ended != had_enough; served += step) {
    ended = run_in_process([&] { return attempt(served); });
    ASSERT_TRUE(ended == recovered || ended == had_enough) << served << " served: " << ended;
  }
  EXPECT_GT(served, fewest);
}

class StartWithoutMemory : public testing::Test {
 protected:
  void SetUp() override {
#ifdef LUM_SANITIZERS_NEW
    GTEST_SKIP() << "memory does not run out here";
#endif
    folder.write("2.toml", "vendor = 'ACME'\nfirmware = [1, 7]\n");
    file = folder.write("node.toml", two_ports).string();
  }

  int start() { return lum_linux_start(file.c_str(), error, sizeof error); }

  // What the first start, which gave `code`, and its stop leave. `failed`: memory did.
  outcome judge(int code, int stopped, bool failed) {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    if (sigismember(&blocked, SIGTERM) != 0) return say_wrong("signals are blocked");
    if (code != 0 && code != ENOMEM && code != EIO) return say_wrong(error, code);
    if (code != 0 && (!failed || error[0] == '\0')) return say_wrong(error, code);
    if (stopped != (code == 0 ? 0 : ENODEV)) return say_wrong("stop", stopped);
    if (const int again = start(); again != 0) return say_wrong(error, again);
    if (const int again = lum_linux_stop(); again != 0) return say_wrong("stop again", again);
    return failed ? recovered : had_enough;
  }

  outcome start_with(uint64_t served, uint64_t failing, bool is_to_fail) {
    memory_runs_out(served, failing);
    const int code = start();
    const bool failed = memory_runs_out(0, 0) != 0;
    if (code == 0 && failed && is_to_fail) return say_wrong("started without memory");
    return judge(code, lum_linux_stop(), failed);
  }

  // The threads that a start makes have too little.
  outcome start_with_elsewhere(uint64_t served, uint64_t failing) {
    memory_runs_out_elsewhere(served, failing);
    const int code = start();
    const int stopped = lum_linux_stop();
    return judge(code, stopped, memory_runs_out_elsewhere(0, 0) != 0);
  }

  outcome stop_with(uint64_t served, uint64_t failing) {
    const int code = start();
    chkpt_appdesc descriptor;
    chkpt_appdesc_init(&descriptor);
    if (const cerrno rc = chkpt_init(0, &descriptor); rc != 0) return say_wrong("chkpt_init");
    memory_runs_out(served, failing);
    const int stopped = lum_linux_stop();
    return judge(code, stopped, memory_runs_out(0, 0) != 0);
  }

  const test_folder folder{folder_place::memory};
  std::string file;
  char error[512] = "";
};

// A start may do without one, so it need not fail.
TEST_F(StartWithoutMemory, SucceedsNextWhicheverAllocationFailed) {
  for_every_allocation([&](uint64_t served) { return start_with(served, 1, false); }, 100, stride);
}

TEST_F(StartWithoutMemory, FailsAndSucceedsNextWhereverMemoryRanOut) {
  for_every_allocation([&](uint64_t served) { return start_with(served, all, true); }, 100, stride);
}

TEST_F(StartWithoutMemory, SucceedsNextWhereverItsThreadsRanOutOfMemory) {
  for_every_allocation([&](uint64_t served) { return start_with_elsewhere(served, 1); }, 0);
  for_every_allocation([&](uint64_t served) { return start_with_elsewhere(served, all); }, 0);
}

TEST_F(StartWithoutMemory, StopsWhereverMemoryRanOut) {
  for_every_allocation([&](uint64_t served) { return stop_with(served, 1); }, 1);
  for_every_allocation([&](uint64_t served) { return stop_with(served, all); }, 1);
}

TEST_F(StartWithoutMemory, MakesNoEventManagerAndTheNextOne) {
  const auto attempt = [](uint64_t served) {
    memory_runs_out(served, all);
    const event_manager made = lum_linux::event_manager_create("events");
    const bool failed = memory_runs_out(0, 0) != 0;
    if (failed != (made == 0)) return say_wrong("made", static_cast<int>(made));
    if (!failed) return had_enough;
    return lum_linux::event_manager_create("events") != 0 ? recovered : say_wrong("none");
  };
  for_every_allocation(attempt, 3);
}

}  // namespace
