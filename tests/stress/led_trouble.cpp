#include "led_trouble.h"

#include <atomic>
#include <cerrno>
#include <map>
#include <mutex>
#include <thread>

#include "crew.h"

namespace stress {
namespace {

struct asked_states {
  std::mutex mutex;
  std::map<uint32_t, uint32_t> last;
};

// The library's threads outlive main.
asked_states &asked() {
  static auto &the_states = *new asked_states;
  return the_states;
}

lum_platform_cbs platform_callbacks;
std::atomic<int64_t> longest_pause{0};  // microseconds
std::atomic<uint32_t> failures{0};      // percent
std::atomic<uint64_t> seeds{0};

random_engine &chance() {
  static thread_local random_engine engine(seeds.fetch_add(1));
  return engine;
}

void pause() {
  const int64_t longest = longest_pause.load();
  if (longest == 0) return;
  const uint32_t time = below(chance(), static_cast<uint32_t>(longest));
  std::this_thread::sleep_for(std::chrono::microseconds(time));
}

cerrno set_state(uint32_t rsip, uint32_t zero, uint32_t state) {
  pause();
  cerrno rc = EIO;
  {
    const std::lock_guard lock(asked().mutex);
    asked().last[rsip] = state;
    if (below(chance(), 100) >= failures.load()) {
      rc = platform_callbacks.led_set_state(rsip, zero, state);
    }
  }
  pause();
  return rc;
}

}  // namespace

lum_platform_cbs troubled_leds(const lum_platform_cbs &platform) {
  platform_callbacks = platform;
  lum_platform_cbs callbacks = platform;
  callbacks.led_set_state = set_state;
  return callbacks;
}

void trouble_leds(std::chrono::microseconds longest, uint32_t failing_percent) {
  longest_pause = longest.count();
  failures = failing_percent;
}

std::optional<uint32_t> led_asked_for(uint32_t rsip) {
  const std::lock_guard lock(asked().mutex);
  const auto found = asked().last.find(rsip);
  if (found == asked().last.end()) return std::nullopt;
  return found->second;
}

}  // namespace stress
