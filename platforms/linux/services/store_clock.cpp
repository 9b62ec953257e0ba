#include "services/store_clock.h"
#include "services/immortal.h"

#include <mutex>

namespace lum_linux {
namespace {

struct clock_holder {
  std::mutex lock;
  store_clock clock;
};

clock_holder &holder() {
  static immortal<clock_holder> the_holder;
  return *the_holder;
}

}  // namespace

void stores_set_clock(store_clock clock) {
  const std::lock_guard hold(holder().lock);
  holder().clock.swap(clock);
}

store_time store_now() {
  const std::lock_guard hold(holder().lock);
  return holder().clock ? holder().clock() : std::chrono::system_clock::now();
}

store_stamp store_stamp_now() { return {store_now(), std::chrono::steady_clock::now()}; }

}  // namespace lum_linux
