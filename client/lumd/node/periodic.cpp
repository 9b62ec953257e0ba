#include "node/periodic.h"

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

namespace lumd {

struct periodic::core {
  std::chrono::milliseconds period;
  std::function<void()> work;
  std::thread thread;
  std::atomic<std::chrono::steady_clock::time_point> ended_at{std::chrono::steady_clock::now()};

  std::mutex mutex;  // guards the next two
  std::condition_variable changed;
  bool stopping = false;
  bool ended = false;

  void run() {
    std::unique_lock lock(mutex);
    while (!stopping) {
      lock.unlock();
      try {
        work();
      } catch (const std::exception &) {
        // No memory for it, most likely: it is done again after the pause.
      }
      ended_at = std::chrono::steady_clock::now();
      lock.lock();
      changed.wait_for(lock, period, [this] { return stopping; });
    }
    ended = true;
    changed.notify_all();
  }
};

periodic::periodic(const std::string &name, std::chrono::milliseconds period,
                   std::function<void()> work)
    : core_(std::make_shared<core>()) {
  core_->period = period;
  core_->work = std::move(work);
  core_->thread = std::thread([state = core_, name] {
    pthread_setname_np(pthread_self(), name.c_str());  // another thread's is a file: see confine.h
    state->run();
  });
}

periodic::~periodic() { stop(); }

std::chrono::steady_clock::duration periodic::since_round() const {
  return std::chrono::steady_clock::now() - core_->ended_at.load();
}

bool periodic::stop(std::chrono::milliseconds bound) {
  if (!core_->thread.joinable()) return true;
  std::unique_lock lock(core_->mutex);
  core_->stopping = true;
  core_->changed.notify_all();
  const bool ended = core_->changed.wait_for(lock, bound, [this] { return core_->ended; });
  lock.unlock();
  if (ended) {
    core_->thread.join();
  } else {
    core_->thread.detach();
  }
  return ended;
}

}  // namespace lumd
