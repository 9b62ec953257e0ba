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
    bool goes_on = true;
    while (goes_on && ended_ < looks.size()) {
      goes_on =
          changed_.wait_for(held, patience, [&, before = ended_] { return ended_ != before; });
    }
    // Without a thread, what is known has to do until the next round.
    if (verdict != lane_verdict::taken) return;
  }
}

void look_round::go_on() {
  std::unique_lock held(mutex_);
  while (next_ < looks.size()) {
    const auto &look = looks[next_++];
    held.unlock();
    look();
    held.lock();
    ++ended_;
    changed_.notify_all();
  }
}

}  // namespace lum_linux
