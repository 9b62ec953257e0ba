#include "crew.h"

#include <cstdio>
#include <cstdlib>

#include "lum_linux/services.h"

namespace stress {

void crew::add(const std::string &name, std::function<void(worker &)> round) {
  const std::lock_guard lock(mutex_);
  workers_.push_back(std::make_unique<worker>(name, seed_ + workers_.size()));
  worker &self = *workers_.back();
  self.thread_ = std::thread([this, &self, round = std::move(round)] {
    while (!dismissed_) {
      round(self);
      self.rounds_.fetch_add(1, std::memory_order_relaxed);
    }
    self.doing("nothing any more");
  });
}

void crew::dismiss() {
  dismissed_ = true;
  for (const auto &each : workers_) {
    if (each->thread_.joinable()) each->thread_.join();
  }
}

std::string crew::report() const {
  const std::lock_guard lock(mutex_);
  std::string text;
  for (const auto &each : workers_) {
    text += "  " + each->name + ": " + std::to_string(each->rounds_.load()) + " rounds, doing " +
            each->step_.load() + "\n";
  }
  return text;
}

uint64_t crew::rounds() const {
  uint64_t sum = 0;
  for (const auto &each : workers_) sum += each->rounds_.load();
  return sum;
}

static void tell_stuck(std::chrono::seconds bound, const std::string &more) {
  std::fprintf(stderr, "STUCK: the test has not ended within %lld s\n",
               static_cast<long long>(bound.count()));
  for (const lum_linux::blocked_thread &thread : lum_linux::blocked_threads()) {
    const auto waiting = std::chrono::steady_clock::now() - thread.since;
    std::fprintf(stderr, "  thread %d waits for mutex %p in %s, line %u, since %lld ms\n",
                 thread.tid, thread.mutex, thread.function.c_str(), thread.line,
                 static_cast<long long>(
                     std::chrono::duration_cast<std::chrono::milliseconds>(waiting).count()));
  }
  std::fputs(more.c_str(), stderr);
}

watchdog::watchdog(std::chrono::seconds bound, std::function<std::string()> more)
    : thread_([this, bound, more = std::move(more)] {
        std::unique_lock lock(mutex_);
        if (changed_.wait_for(lock, bound, [this] { return called_off_; })) return;
        tell_stuck(bound, more ? more() : std::string());
        std::abort();
      }) {}

watchdog::~watchdog() {
  {
    const std::lock_guard lock(mutex_);
    called_off_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

}  // namespace stress
