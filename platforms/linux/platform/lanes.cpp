#include "lum_linux/lanes.h"

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace lum_linux {
namespace {

// Of a thread without work: longer than from one polling cycle to the next, so that what is done
// once a cycle finds its thread.
constexpr std::chrono::seconds linger(12);

using work = std::function<void()>;

}  // namespace

struct lanes::core : std::enable_shared_from_this<lanes::core> {
  struct lane {
    std::deque<work> waiting;
    bool running = false;
  };

  std::string name;
  lane_limits limits;

  mutable std::mutex mutex;  // guards the rest; never held while work runs
  std::condition_variable changed;
  std::map<uint64_t, lane> lanes_;  // those with work
  std::size_t ready = 0;            // of them, those none of whose work runs
  uint64_t served = 0;              // the lane that had its turn last
  std::size_t threads = 0;
  std::size_t idle = 0;
  bool stopped = false;

  bool has_thread_for_one_more();
  std::pair<uint64_t, lane *> next();
  void run();
  void run_front(std::unique_lock<std::mutex> &held);
};

// Called with the mutex held.
bool lanes::core::has_thread_for_one_more() {
  if (idle > ready) return true;
  if (threads >= limits.threads) return false;
  try {
    std::thread thread([self = shared_from_this()] { self->run(); });
    thread.detach();
  } catch (const std::exception &) {
    return false;
  }
  ++threads;
  ++idle;  // until it has looked for work
  return true;
}

// In turn, from the lane behind the one served last. Expects one to be ready; it stays where it is
// while it runs.
std::pair<uint64_t, lanes::core::lane *> lanes::core::next() {
  auto found = lanes_.upper_bound(served);
  for (;;) {
    if (found == lanes_.end()) found = lanes_.begin();
    if (!found->second.running && !found->second.waiting.empty()) break;
    ++found;
  }
  served = found->first;
  return {found->first, &found->second};
}

void lanes::core::run() {
  pthread_setname_np(pthread_self(), name.c_str());
  std::unique_lock held(mutex);
  for (;;) {
    const bool has_work = changed.wait_for(held, linger, [this] { return stopped || ready > 0; });
    if (stopped || !has_work) break;
    --idle;
    run_front(held);
    ++idle;
  }
  --idle;
  --threads;
}

void lanes::core::run_front(std::unique_lock<std::mutex> &held) {
  const auto [number, mine] = next();
  mine->running = true;
  --ready;
  {
    work now = std::move(mine->waiting.front());
    mine->waiting.pop_front();
    held.unlock();
    try {
      now();
    } catch (...) {
      // Whoever waits for the work has a way of its own to learn how it ended.
    }
  }
  held.lock();
  mine->running = false;
  if (stopped || mine->waiting.empty()) {
    lanes_.erase(number);
    return;
  }
  ++ready;
  changed.notify_one();
}

lanes::lanes(const std::string &name, lane_limits limits) : core_(std::make_shared<core>()) {
  core_->name = name;
  core_->limits = limits;
}

lanes::~lanes() { stop(); }

lane_verdict lanes::post(uint64_t number, work what) {
  const std::lock_guard held(core_->mutex);
  if (core_->stopped) return lane_verdict::stopped;
  const auto found = core_->lanes_.find(number);
  if (found != core_->lanes_.end()) {
    core::lane &lane = found->second;
    if (lane.waiting.size() >= core_->limits.waiting) return lane_verdict::full;
    try {
      lane.waiting.push_back(std::move(what));
    } catch (const std::bad_alloc &) {
      return lane_verdict::no_thread;
    }
    return lane_verdict::taken;
  }
  if (!core_->has_thread_for_one_more()) return lane_verdict::no_thread;
  try {
    core_->lanes_[number].waiting.push_back(std::move(what));
  } catch (const std::bad_alloc &) {
    core_->lanes_.erase(number);
    return lane_verdict::no_thread;
  }
  ++core_->ready;
  core_->changed.notify_one();
  return lane_verdict::taken;
}

std::size_t lanes::in_lane(uint64_t number) const {
  const std::lock_guard held(core_->mutex);
  const auto found = core_->lanes_.find(number);
  if (found == core_->lanes_.end()) return 0;
  return found->second.waiting.size() + (found->second.running ? 1 : 0);
}

void lanes::stop() {
  const std::lock_guard held(core_->mutex);
  core_->stopped = true;
  core_->ready = 0;
  for (auto &[number, lane] : core_->lanes_) lane.waiting.clear();
  core_->changed.notify_all();
}

}  // namespace lum_linux
