#include "lum_linux/periodic.h"

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <stop_token>
#include <thread>

#include "services/signals_blocked.h"

namespace lum_linux {

struct periodic::core {
  std::function<milliseconds()> work;
  milliseconds otherwise{};
  std::jthread thread;
  std::atomic<std::chrono::steady_clock::time_point> ended_at{std::chrono::steady_clock::now()};

  std::mutex mutex;  // guards the rest
  std::condition_variable_any changed;
  bool hastened = false;
  bool ended = false;

  void run(const std::stop_token &stop, milliseconds before_first) {
    std::unique_lock lock(mutex);
    milliseconds pause = before_first;
    const auto is_due = [&] {
      changed.wait_for(lock, stop, pause, [this] { return hastened; });
      hastened = false;
      return !stop.stop_requested();
    };
    while (is_due()) {
      lock.unlock();
      pause = otherwise;
      try {
        pause = work();
      } catch (const std::exception &) {
        // No memory for it, most likely: it is done again after the pause.
      }
      ended_at = std::chrono::steady_clock::now();
      lock.lock();
    }
    ended = true;
    changed.notify_all();
  }
};

periodic::periodic(const std::string &name, milliseconds period, std::function<void()> work,
                   milliseconds before_first)
    : periodic(
          name,
          [work = std::move(work), period] {
            work();
            return period;
          },
          period, before_first) {}

periodic::periodic(const std::string &name, std::function<milliseconds()> work,
                   milliseconds otherwise, milliseconds before_first)
    : core_(std::make_shared<core>()) {
  core_->work = std::move(work);
  core_->otherwise = otherwise;
  const signals_blocked until_started;
  core_->thread = std::jthread([state = core_, before_first, name](const std::stop_token &stop) {
    // From here: another thread's name is a file, which a process may not be allowed to write.
    pthread_setname_np(pthread_self(), name.c_str());
    state->run(stop, before_first);
  });
}

periodic::~periodic() { stop(); }

std::chrono::steady_clock::duration periodic::since_round() const {
  return std::chrono::steady_clock::now() - core_->ended_at.load();
}

void periodic::hasten() {
  const std::lock_guard lock(core_->mutex);
  core_->hastened = true;
  core_->changed.notify_all();
}

bool periodic::stop(milliseconds bound) {
  if (!core_->thread.joinable()) return true;
  core_->thread.request_stop();
  std::unique_lock lock(core_->mutex);
  const bool ended = core_->changed.wait_for(lock, bound, [this] { return core_->ended; });
  lock.unlock();
  if (ended) {
    core_->thread.join();
  } else {
    core_->thread.detach();
  }
  return ended;
}

}  // namespace lum_linux
