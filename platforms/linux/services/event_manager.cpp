// Event managers: an io_context each, run by one thread of its own.
//
// Boost 1.74's Asio relies on <utility> having been included. Fences are not needed: whatever
// crosses threads here does so under the io_context's own mutex.
#include "lum_linux/events.h"

#include <utility>
#define BOOST_ASIO_DISABLE_FENCED_BLOCK
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <queue>
#include <system_error>
#include <thread>
#include <vector>

#include "event_manager.h"
#include "services/immortal.h"

namespace {

using std::chrono::milliseconds;

constexpr uint32_t highest_priority = 255;

class event_loop : public std::enable_shared_from_this<event_loop> {
 public:
  explicit event_loop(event_manager handle) : handle_(handle) {}

  // Throws std::system_error when there is no thread.
  void start(const std::string &name) {
    thread_ = std::thread([self = shared_from_this(), name] {
      pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
      self->run();
    });
  }

  // Returns false when a handler was still running after `bound`.
  bool stop(milliseconds bound) {
    context_.stop();
    if (on_own_thread()) {
      thread_.detach();
      return true;
    }
    std::unique_lock hold(lock_);
    const bool ended = changed_.wait_for(hold, bound, [this] { return ended_; });
    hold.unlock();
    if (ended) {
      thread_.join();
    } else {
      thread_.detach();
    }
    return ended;
  }

  uint32_t attach(uint32_t priority, event_async_handler handler) {
    const std::lock_guard hold(lock_);
    pulses_.push_back({priority, handler});
    return static_cast<uint32_t>(pulses_.size());
  }

  uint32_t send(uint32_t pulse, uint64_t value) {
    const std::lock_guard hold(lock_);
    if (pulse == 0 || pulse > pulses_.size()) return EINVAL;
    const attachment &to = pulses_[pulse - 1];
    boost::asio::post(context_, [this] { take_one(); });
    queue_.push({to.priority, sent_, to.handler, pulse, value});
    ++sent_;
    return 0;
  }

  bool drain(milliseconds bound) {
    if (on_own_thread()) return false;
    std::unique_lock hold(lock_);
    return changed_.wait_for(hold, bound, [this] { return handled_ == sent_; });
  }

 private:
  struct attachment {
    uint32_t priority;
    event_async_handler handler;
  };

  struct queued_pulse {
    uint32_t priority;
    uint64_t order;
    event_async_handler handler;
    uint32_t pulse;
    uint64_t value;
    // A higher priority overtakes; pulses of one priority stay in the order they were sent.
    bool operator<(const queued_pulse &other) const {
      return priority != other.priority ? priority < other.priority : order > other.order;
    }
  };

  bool on_own_thread() const { return std::this_thread::get_id() == own_id_.load(); }

  void run() {
    own_id_ = std::this_thread::get_id();
    context_.run();
    const std::lock_guard hold(lock_);
    ended_ = true;
    changed_.notify_all();
  }

  void take_one() {
    std::unique_lock hold(lock_);
    if (queue_.empty()) return;
    const queued_pulse next = queue_.top();
    queue_.pop();
    hold.unlock();
    next.handler(handle_, next.pulse, next.value);
    hold.lock();
    ++handled_;
    changed_.notify_all();
  }

  const event_manager handle_;
  boost::asio::io_context context_{1};
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{
      context_.get_executor()};
  std::thread thread_;
  std::atomic<std::thread::id> own_id_;

  std::mutex lock_;  // guards all below
  std::condition_variable changed_;
  std::vector<attachment> pulses_;  // a pulse's code is its place, from 1
  std::priority_queue<queued_pulse> queue_;
  uint64_t sent_ = 0;
  uint64_t handled_ = 0;
  bool ended_ = false;
};

// Handles are never given out twice. Lives until the process ends, for its threads may.
struct loop_registry {
  std::mutex lock;
  event_manager last_handle = 0;
  std::map<event_manager, std::shared_ptr<event_loop>> loops;
};

loop_registry &registry() {
  static lum_linux::immortal<loop_registry> the_registry;
  return *the_registry;
}

std::shared_ptr<event_loop> loop_of(event_manager manager) {
  const std::lock_guard hold(registry().lock);
  const auto found = registry().loops.find(manager);
  return found == registry().loops.end() ? nullptr : found->second;
}

}  // namespace

void *event_manager_levm_get(event_manager manager) { return loop_of(manager).get(); }

uint32_t event_async_attach(event_manager manager, uint32_t priority, event_async_handler handler,
                            uint32_t flags) {
  if (handler == nullptr || priority > highest_priority || flags != 0) return EVENT_PULSE_NONE;
  const auto loop = loop_of(manager);
  if (loop == nullptr) return EVENT_PULSE_NONE;
  try {
    return loop->attach(priority, handler);
  } catch (const std::bad_alloc &) {
    return EVENT_PULSE_NONE;
  }
}

uint32_t event_send_async(event_manager manager, uint32_t pulse, uint64_t value) {
  const auto loop = loop_of(manager);
  if (loop == nullptr) return EINVAL;
  try {
    return loop->send(pulse, value);
  } catch (const std::bad_alloc &) {
    return ENOMEM;
  }
}

namespace lum_linux {

event_manager event_manager_create(const std::string &name) {
  const std::lock_guard hold(registry().lock);
  const event_manager handle = ++registry().last_handle;
  try {
    const auto loop = std::make_shared<event_loop>(handle);
    registry().loops.emplace(handle, loop);
    loop->start(name);
    return handle;
  } catch (const std::exception &) {
    registry().loops.erase(handle);
    return 0;
  }
}

bool event_manager_destroy(event_manager manager, milliseconds bound) {
  std::shared_ptr<event_loop> loop;
  {
    const std::lock_guard hold(registry().lock);
    const auto found = registry().loops.find(manager);
    if (found == registry().loops.end()) return false;
    loop = std::move(found->second);
    registry().loops.erase(found);
  }
  return loop->stop(bound);
}

bool event_manager_drain(event_manager manager, milliseconds bound) {
  const auto loop = loop_of(manager);
  return loop != nullptr && loop->drain(bound);
}

}  // namespace lum_linux
