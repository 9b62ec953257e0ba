// Whose turn it is to open slots and to create and delete ports: one at a time in each slot, so
// that a deletion that hangs holds up its own slot only.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <utility>

namespace lumd {

class slot_turns {
 public:
  // A turn, or none when it did not come in time.
  class turn {
   public:
    turn() = default;
    turn(slot_turns &of, std::set<uint32_t> slots) : of_(&of), slots_(std::move(slots)) {}
    turn(turn &&other) noexcept
        : of_(std::exchange(other.of_, nullptr)), slots_(std::move(other.slots_)) {}
    turn &operator=(turn &&) = delete;
    ~turn() { end(); }
    explicit operator bool() const { return of_ != nullptr; }
    void end();

   private:
    slot_turns *of_ = nullptr;
    std::set<uint32_t> slots_;
  };

  // Waits until nobody has any of the slots, for `wait` at most. The slots come together or not at
  // all. Any thread may call; the turn ends on any thread, before this object.
  turn take(const std::set<uint32_t> &slots, std::chrono::milliseconds wait);
  // As take(), for every slot there may be.
  turn take_all(std::chrono::milliseconds wait);

 private:
  std::mutex mutex_;  // guards what is taken, and is not held during a turn
  std::condition_variable changed_;
  std::set<uint32_t> taken_;
};

}  // namespace lumd
