// The connections that came in on one socket, and room for the next.
#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>

namespace lumd {

class connections {
 public:
  // One of them, waiting for a request or at work on one.
  struct one {
    virtual ~one() = default;
    // Ends what it waits for. On the connections' own thread, waiting for nothing and taking no
    // memory.
    virtual void give_way() = 0;

    std::list<one *>::iterator place;
    std::chrono::steady_clock::time_point waits_since{};  // the clock's epoch: it does not wait
  };

  explicit connections(std::size_t most) : most_(most) {}

  // Whether there is room for one more, the one that has waited longest made to go for it.
  bool add(one &added) {
    const std::lock_guard held(mutex_);
    added.place = all_.insert(all_.end(), &added);
    if (all_.size() <= most_) return true;
    one *longest = nullptr;
    for (one *candidate : all_) {
      const bool waits = candidate != &added && candidate->waits_since != never;
      if (waits && (longest == nullptr || candidate->waits_since < longest->waits_since)) {
        longest = candidate;
      }
    }
    if (longest == nullptr) return false;
    longest->waits_since = never;
    longest->give_way();
    return true;
  }
  void remove(one &gone) {
    const std::lock_guard held(mutex_);
    all_.erase(gone.place);
  }
  void waits(one &which, bool does) {
    const std::lock_guard held(mutex_);
    which.waits_since = does ? std::chrono::steady_clock::now() : never;
  }

 private:
  static constexpr std::chrono::steady_clock::time_point never{};

  const std::size_t most_;
  std::mutex mutex_;  // guards the rest, and waits_since of each
  std::list<one *> all_;
};

}  // namespace lumd
