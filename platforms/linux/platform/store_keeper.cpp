#include "platform/store_keeper.h"

#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include "lum_linux/checkpoints.h"
#include "lum_linux/system.h"
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
  try {
    core_->thread = std::thread([state = core_] { state->run(); });
    pthread_setname_np(core_->thread.native_handle(), "lum-store");
  } catch (const std::system_error &failure) {
    system_log(std::string("there is no thread to look after the checkpoint store: ") +
               failure.what());
  }
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
