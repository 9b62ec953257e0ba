#include "modules/look_round.h"

namespace lum_linux {
namespace {

constexpr std::chrono::milliseconds patience(250);  // with one of them

}  // namespace

void look_round::run(lanes &threads) {
  std::unique_lock held(mutex_);
  for (uint64_t lane = reinterpret_cast<uintptr_t>(this); next_ < looks.size(); ++lane) {
    held.unlock();
    const auto verdict = threads.post(lane, [self = shared_from_this()] { self->go_on(); });
    held.lock();
    wait_while_it_goes_on(held);
    // Without a thread, what is known has to do until the next round.
    if (verdict != lane_verdict::taken) return;
  }
}

// A thread that ends one look after the other is let be, and wakes nobody until it has ended all.
void look_round::wait_while_it_goes_on(std::unique_lock<std::mutex> &held) {
  for (bool goes_on = true; goes_on && ended_ < looks.size();) {
    const std::size_t before = ended_;
    all_ended_.wait_for(held, patience, [this] { return ended_ == looks.size(); });
    goes_on = ended_ != before;
  }
}

void look_round::go_on() {
  std::unique_lock held(mutex_);
  while (next_ < looks.size()) {
    const auto &look = looks[next_++];
    held.unlock();
    look();
    held.lock();
    if (++ended_ == looks.size()) all_ended_.notify_all();
  }
}

}  // namespace lum_linux
