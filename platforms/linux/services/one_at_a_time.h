// Lets one thread at a time into other people's code, and recognises a thread that is in it
// already.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

namespace lum_linux {

class one_at_a_time {
 public:
  // Waits for the thread that is inside. Returns false at once when it is the calling one.
  bool enter() {
    std::unique_lock hold(lock_);
    if (owner_ == std::this_thread::get_id()) return false;
    changed_.wait(hold, [this] { return owner_ == std::thread::id(); });
    owner_ = std::this_thread::get_id();
    return true;
  }

  void leave() {
    const std::lock_guard hold(lock_);
    owner_ = std::thread::id();
    changed_.notify_one();
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  std::thread::id owner_;
};

// Leaves by itself when it has entered.
class entered {
 public:
  explicit entered(one_at_a_time &gate) : gate_(gate), inside_(gate.enter()) {}
  ~entered() {
    if (inside_) gate_.leave();
  }
  entered(const entered &) = delete;
  entered &operator=(const entered &) = delete;
  explicit operator bool() const { return inside_; }

 private:
  one_at_a_time &gate_;
  bool inside_;
};

}  // namespace lum_linux
