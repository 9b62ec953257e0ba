// Every allocation, and every call that reaches the store's files, fails in the life of a node:
// each time in a process of its own, and the next process finds what was acknowledged. All of them
// with LUM_ATTACK_STRIDE=1, of the calls on the store with LUM_STORE_STRIDE=1; else one in so many,
// from another first one each day or from LUM_ATTACK_START, which is printed.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "one_life.h"
#include "stated_ends.h"
#include "test_folder.h"

namespace {

using attacks::attack;
using attacks::ending;
using attacks::ledger;
using attacks::target;

constexpr unsigned stuck_seconds = 200;
constexpr unsigned most_failures_shown = 5;
// What a batch that nobody takes leaves, and the words of a trouble that is told.
constexpr int64_t few_blocks = 24;

uint64_t setting(const char *name, uint64_t otherwise) {
  const char *text = std::getenv(name);
  return text == nullptr || *text == '\0' ? otherwise : std::strtoull(text, nullptr, 10);
}

struct count {
  uint64_t tried = 0;
  uint64_t survived = 0;
  uint64_t fatal = 0;     // ended as the headers say of them
  uint64_t refused = 0;   // the start was refused
  uint64_t leaving = 0;   // more blocks of memory than a life that nothing befalls
  int64_t most_left = 0;  // of such blocks
};

class Attacks : public testing::Test {
 protected:
  void SetUp() override {
    left_ = static_cast<ledger *>(
        mmap(nullptr, sizeof(ledger), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    node_ = attacks::small_node_in(folder_.path());
    attacks::attack_files_below(node_.state_directory.c_str());
    const std::string said = in_process([&] { attacks::live(node_, {}, *left_); });
    ASSERT_EQ(said, "") << left_->wrong;
    ASSERT_STREQ(left_->wrong, "");
    undisturbed_ = left_->blocks;
  }
  void TearDown() override { munmap(left_, sizeof(ledger)); }

  // How a process that does so ends: empty when as it should, "fatal" when liblum has ended it for
  // a reason that its headers name, else what has happened.
  std::string in_process(const std::function<void()> &what) {
    const std::string errors = folder_.path() / "stderr";
    const pid_t child = fork();
    if (child == 0) {
      const rlimit no_core = {0, 0};
      setrlimit(RLIMIT_CORE, &no_core);
      static_cast<void>(std::freopen(errors.c_str(), "w", stderr));
      std::setvbuf(stderr, nullptr, _IONBF, 0);
      alarm(stuck_seconds);
      what();
      _exit(0);
    }
    int status = -1;
    if (waitpid(child, &status, 0) != child) return "no process";
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
    std::stringstream said;
    said << std::ifstream(errors).rdbuf();
    const bool is_fatal =
        WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT && support::is_stated_end(said.str());
    if (is_fatal) return "fatal";
    return "status " + std::to_string(status) + ": " + said.str();
  }

  // One life with the attack and the next one. False when the attack came too late to be met.
  bool outlives(const attack &planned, count &all) {
    std::string said = in_process([&] { attacks::live(node_, planned, *left_); });
    const bool met = said == "fatal" || !said.empty() || left_->calls >= planned.nth;
    if (!met) return false;
    ++all.tried;
    if (said == "fatal") ++all.fatal;
    if (said.empty() && left_->refused) ++all.refused;
    if (said.empty() && !left_->refused && planned.how != ending::is_killed) {
      const int64_t left = left_->blocks - undisturbed_;
      all.leaving += left > 0 ? 1 : 0;
      all.most_left = std::max(all.most_left, left);
    }
    left_->refused = false;
    const bool ended_well = said.empty() || said == "fatal";
    if (ended_well) said = in_process([&] { attacks::live_on(node_, *left_); });
    if (said.empty()) said = left_->wrong;
    if (said.empty()) {
      ++all.survived;
    } else if (++failures_ <= most_failures_shown) {
      ADD_FAILURE() << attacks::name_of(planned.what) << " " << planned.nth
                    << (planned.from_then_on ? " and all after it" : "") << " with "
                    << planned.error << " " << attacks::name_of(planned.how) << ": " << said;
    }
    left_->wrong[0] = '\0';
    return true;
  }

  // Of every `stride` calls one, the first one moving on from day to day.
  count outlives_each(attack planned, uint64_t stride) {
    const auto day = static_cast<uint64_t>(std::time(nullptr) / (24 * 60 * 60));
    const uint64_t first = setting("LUM_ATTACK_START", 1 + day % stride);
    count all;
    planned.nth = first;
    while (all.tried - all.survived < most_failures_shown && outlives(planned, all)) {
      planned.nth += stride;
    }
    std::printf(
        "%s fails %s with %d, every %lu. from the %lu., %s: %lu tried, %lu survived, of which %lu "
        "ended as stated and %lu were refused their start; %lu left blocks of memory, at most "
        "%ld\n",
        attacks::name_of(planned.what), planned.from_then_on ? "from then on" : "once",
        planned.error, static_cast<unsigned long>(stride), static_cast<unsigned long>(first),
        attacks::name_of(planned.how), static_cast<unsigned long>(all.tried),
        static_cast<unsigned long>(all.survived), static_cast<unsigned long>(all.fatal),
        static_cast<unsigned long>(all.refused), static_cast<unsigned long>(all.leaving),
        static_cast<long>(all.most_left));
    std::fflush(stdout);
    EXPECT_EQ(all.survived, all.tried);
    return all;
  }

  const test_folder folder_{folder_place::memory};
  lum_linux::node_description node_;
  ledger *left_ = nullptr;
  int64_t undisturbed_ = 0;
  unsigned failures_ = 0;
};

}  // namespace

TEST_F(Attacks, a_node_outlives_the_failure_of_any_allocation) {
  const uint64_t stride = setting("LUM_ATTACK_STRIDE", 20);
  for (const ending how : {ending::recovers, ending::stops}) {
    const count all = outlives_each({target::memory, 1, false, ENOMEM, how}, stride);
    EXPECT_GT(all.tried, 20u);
    EXPECT_LT(all.most_left, few_blocks);
  }
}

TEST_F(Attacks, a_node_outlives_memory_that_runs_out_anywhere) {
  const uint64_t stride = setting("LUM_ATTACK_STRIDE", 5);
  for (const ending how : {ending::recovers, ending::stops, ending::is_killed}) {
    const count all = outlives_each({target::memory, 1, true, ENOMEM, how}, stride);
    EXPECT_GT(all.tried, 20u);
    EXPECT_LT(all.most_left, few_blocks);
  }
}

TEST_F(Attacks, no_failing_call_on_the_store_loses_what_was_acknowledged) {
  uint64_t tried = 0;
  const uint64_t stride = setting("LUM_ATTACK_STRIDE", setting("LUM_STORE_STRIDE", 4));
  for (const target what : attacks::disk_targets) {
    for (const int error : {EIO, ENOSPC}) {
      for (const ending how : {ending::recovers, ending::stops}) {
        tried += outlives_each({what, 1, false, error, how}, stride).tried;
      }
      for (const ending how : {ending::recovers, ending::stops, ending::is_killed}) {
        tried += outlives_each({what, 1, true, error, how}, stride).tried;
      }
    }
  }
  EXPECT_GT(tried, 40u);
}
