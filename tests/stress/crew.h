// The threads of a stress test, and what happens when one of them is stuck.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace stress {

using random_engine = std::mt19937_64;

// A number from 0 to below `end`.
inline uint32_t below(random_engine &random, uint32_t end) {
  return static_cast<uint32_t>(random() % end);
}

class worker {
 public:
  worker(std::string its_name, uint64_t seed) : random(seed), name(std::move(its_name)) {}

  // What the thread is about to do; constant text.
  void doing(const char *what) { step_.store(what, std::memory_order_relaxed); }

  random_engine random;
  const std::string name;

 private:
  friend class crew;
  std::atomic<const char *> step_{"starting"};
  std::atomic<uint64_t> rounds_{0};
  std::thread thread_;
};

// Threads that each do one thing over and over until they are dismissed.
class crew {
 public:
  explicit crew(uint64_t seed) : seed_(seed) {}
  ~crew() { dismiss(); }
  crew(const crew &) = delete;
  crew &operator=(const crew &) = delete;

  void add(const std::string &name, std::function<void(worker &)> round);
  void dismiss();

  // "name: n rounds, doing x" for each of them.
  std::string report() const;
  uint64_t rounds() const;

 private:
  uint64_t seed_;
  std::atomic<bool> dismissed_{false};
  mutable std::mutex mutex_;  // the watchdog may ask for a report at any time
  std::vector<std::unique_ptr<worker>> workers_;
};

// Ends the process when it has not been called off in time, saying which threads wait for which
// mutex and what `more` tells.
class watchdog {
 public:
  watchdog(std::chrono::seconds bound, std::function<std::string()> more);
  ~watchdog();
  watchdog(const watchdog &) = delete;
  watchdog &operator=(const watchdog &) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool called_off_ = false;
  std::thread thread_;
};

}  // namespace stress
