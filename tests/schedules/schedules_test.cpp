// The library's threads in orders that are drawn by seed: in each what the model says holds, and
// nobody waits for ever. A schedule is a process of its own; LUM_SCHEDULE_SEED runs one again and
// tells what its threads did.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <thread>

#include "library.h"
#include "program.h"

namespace {

// A schedule takes milliseconds; one that takes so long is spinning.
constexpr unsigned spinning_seconds = 120;
constexpr std::size_t shown_failures = 3;

uint64_t setting(const char *name, uint64_t otherwise) {
  const char *text = std::getenv(name);
  return text == nullptr || *text == '\0' ? otherwise : std::strtoull(text, nullptr, 10);
}

// What processes of schedules leave behind for the test, a line each.
struct shared_outcome {
  uint64_t story;
  uint64_t steps;
};
constexpr std::size_t most_at_once = 64;

class schedule_runs {
 public:
  schedule_runs()
      : at_once_(std::clamp(std::thread::hardware_concurrency(), 1u, 4u)),
        outcomes_(static_cast<shared_outcome *>(mmap(nullptr, most_at_once * sizeof(shared_outcome),
                                                     PROT_READ | PROT_WRITE,
                                                     MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
  ~schedule_runs() { munmap(outcomes_, most_at_once * sizeof(shared_outcome)); }
  schedule_runs(const schedule_runs &) = delete;
  schedule_runs &operator=(const schedule_runs &) = delete;

  void begin(uint64_t seed) {
    while (running_.size() >= at_once_) end_one();
    std::size_t line = 0;
    while (taken_.contains(line)) ++line;
    const pid_t process = fork();
    ASSERT_GE(process, 0);
    if (process == 0) run(seed, outcomes_[line]);
    taken_.insert(line);
    running_[process] = {seed, line};
  }
  void end_all() {
    while (!running_.empty()) end_one();
  }

  uint64_t ended() const { return ended_; }
  uint64_t steps() const { return steps_; }
  const std::map<uint64_t, uint64_t> &stories() const { return stories_; }
  const std::set<uint64_t> &failed() const { return failed_; }

 private:
  [[noreturn]] static void run(uint64_t seed, shared_outcome &left) {
    alarm(spinning_seconds);
    const bool tell = std::getenv("LUM_SCHEDULE_SEED") != nullptr;
    const schedules::outcome outcome = schedules::run_schedule(seed, tell);
    left = {outcome.story, outcome.steps};
    for (const std::string &finding : outcome.findings) {
      std::fprintf(stderr, "schedule %lu: %s\n", static_cast<unsigned long>(seed), finding.c_str());
    }
    _exit(outcome.findings.empty() && !testing::Test::HasFailure() ? 0 : 1);
  }

  void end_one() {
    int status = 0;
    const pid_t process = wait(&status);
    const auto found = running_.find(process);
    if (found == running_.end()) return;
    const auto [seed, line] = found->second;
    if (WIFSIGNALED(status)) {
      std::fprintf(stderr, "schedule %lu: ended by signal %d\n", static_cast<unsigned long>(seed),
                   WTERMSIG(status));
    }
    if (status != 0) failed_.insert(seed);
    stories_[seed] = outcomes_[line].story;
    steps_ += outcomes_[line].steps;
    taken_.erase(line);
    running_.erase(found);
    ++ended_;
  }

  struct running_schedule {
    uint64_t seed;
    std::size_t line;
  };
  std::size_t at_once_;
  shared_outcome *outcomes_;
  std::map<pid_t, running_schedule> running_;
  std::set<std::size_t> taken_;
  std::map<uint64_t, uint64_t> stories_;
  std::set<uint64_t> failed_;
  uint64_t ended_ = 0;
  uint64_t steps_ = 0;
};

#ifdef LUM_SANITIZED
constexpr uint64_t usual_count = 500;
#else
constexpr uint64_t usual_count = 10000;
#endif

}  // namespace

TEST(schedules, whatever_the_order_of_the_threads_what_the_model_says_holds) {
  ASSERT_EQ(support::boot(), 0u);
  const uint64_t only = setting("LUM_SCHEDULE_SEED", 0);
  const uint64_t count = only != 0 ? 1 : setting("LUM_SCHEDULES", usual_count);
  const uint64_t first = only != 0 ? only : setting("LUM_SCHEDULES_FROM", 1);
  schedule_runs runs;
  for (uint64_t seed = first; seed < first + count && runs.failed().size() < shown_failures;
       ++seed) {
    ASSERT_NO_FATAL_FAILURE(runs.begin(seed));
  }
  runs.end_all();
  std::printf("schedules from seed %lu: %lu tried, %lu survived, %lu seam calls each\n",
              static_cast<unsigned long>(first), static_cast<unsigned long>(runs.ended()),
              static_cast<unsigned long>(runs.ended() - runs.failed().size()),
              static_cast<unsigned long>(runs.steps() / std::max<uint64_t>(1, runs.ended())));
  for (const uint64_t seed : runs.failed()) {
    ADD_FAILURE() << "run it again with LUM_SCHEDULE_SEED=" << seed;
  }
}

TEST(schedules, a_seed_gives_the_same_schedule_again) {
  ASSERT_EQ(support::boot(), 0u);
  schedule_runs first, again;
  for (uint64_t seed = 1; seed <= 50; ++seed) ASSERT_NO_FATAL_FAILURE(first.begin(seed));
  first.end_all();
  for (uint64_t seed = 1; seed <= 50; ++seed) ASSERT_NO_FATAL_FAILURE(again.begin(seed));
  again.end_all();
  EXPECT_EQ(first.stories(), again.stories());
  std::set<uint64_t> different;
  for (const auto &[seed, story] : first.stories()) different.insert(story);
  EXPECT_GT(different.size(), 40u);
}
