#include "services/store_clock.h"
#include "services/immortal.h"

#include <mutex>

namespace lum_linux {
namespace {

struct clock_holder {
  std::mutex lock;
  store_clock clock;
  moment_clock moments;
};

clock_holder &holder() {
  static immortal<clock_holder> the_holder;
  return *the_holder;
}

}  // namespace

void stores_set_clock(store_clock clock, moment_clock moments) {
  const std::lock_guard hold(holder().lock);
  holder().clock.swap(clock);
  holder().moments.swap(moments);
}

store_stamp store_stamp_now() {
  using moment = std::chrono::steady_clock::time_point;
  const std::lock_guard hold(holder().lock);
  if (!holder().clock) return {std::chrono::system_clock::now(), std::chrono::steady_clock::now()};
  const store_time time = holder().clock();
  return {time, holder().moments ? holder().moments() : moment(time.time_since_epoch())};
}

}  // namespace lum_linux
