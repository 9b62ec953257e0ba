#include "platform/store_keeper.h"

#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "lum_linux/checkpoints.h"
#include "services/signals_blocked.h"

namespace lum_linux {
namespace {

constexpr std::chrono::seconds period(5);

}  // namespace

struct store_keeper::core {
  std::thread thread;

  std::mutex mutex;  // guards the next two
  std::condition_variable changed;
  bool stopping = false;
  bool ended = false;

  void run() {
    pthread_setname_np(pthread_self(), "lum-store");
    std::unique_lock lock(mutex);
    while (!changed.wait_for(lock, period, [this] { return stopping; })) {
      lock.unlock();
      checkpoints_tend();
      lock.lock();
    }
    ended = true;
    changed.notify_all();
  }
};

store_keeper::store_keeper() : core_(std::make_shared<core>()) {
  const signals_blocked until_started;
  core_->thread = std::thread([state = core_] { state->run(); });
}

store_keeper::~store_keeper() { stop(); }

bool store_keeper::stop(std::chrono::milliseconds bound) {
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

}  // namespace lum_linux
