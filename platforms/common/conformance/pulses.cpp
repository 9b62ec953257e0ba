// The client's event manager: event_manager.h.
#include <algorithm>
#include <mutex>
#include <numeric>
#include <thread>

#include "check.h"
#include "event_manager.h"

namespace conformance {
namespace {

struct taken {
  event_manager manager;
  uint32_t pulse;
  uint64_t value;
  std::thread::id thread;
};

// The handler has no context of its own.
std::mutex lock;
std::vector<taken> pulses;  // under lock
std::atomic<uint32_t> inside{0}, beside_another{0};
uint64_t resend_below = 0;  // pulses with a value below send the next one from the handler

std::vector<taken> taken_pulses() {
  const std::lock_guard hold(lock);
  return pulses;
}

void handle(event_manager manager, uint32_t pulse, uint64_t value) {
  if (++inside > 1) ++beside_another;
  {
    const std::lock_guard hold(lock);
    pulses.push_back({manager, pulse, value, std::this_thread::get_id()});
  }
  if (value < resend_below) event_send_async(manager, pulse, value + 1);
  --inside;
}

uint32_t attach(event_manager manager) {
  const uint32_t pulse = event_async_attach(manager, 10, handle, 0);
  require(pulse != EVENT_PULSE_NONE, "no handler can be attached");
  return pulse;
}

void zero_is_no_manager() {
  start_platform();
  require(event_manager_levm_get(0) == nullptr, "the event manager 0 has a handle");
}

void every_pulse_comes_once() {
  constexpr uint64_t count = 200;
  const event_manager manager = start_platform().evm;
  const uint32_t pulse = attach(manager);
  require(taken_pulses().empty(), "the handler is called before a pulse is sent");
  for (uint64_t value = 1; value <= count; ++value) {
    require(event_send_async(manager, pulse, value) == 0, "pulse %u cannot be sent",
            static_cast<uint32_t>(value));
  }
  comes([] { return taken_pulses().size() >= count; });
  std::this_thread::sleep_for(settling_time);
  std::vector<uint64_t> sent(count), values;
  std::iota(sent.begin(), sent.end(), 1);
  for (const taken &one : taken_pulses()) {
    require(one.manager == manager, "a pulse came for another event manager");
    require(one.pulse == pulse, "a pulse came with the code %u and not %u", one.pulse, pulse);
    require(one.thread != std::this_thread::get_id(), "a pulse came on its sender's thread");
    values.push_back(one.value);
  }
  std::sort(values.begin(), values.end());
  require(values == sent, "%zu pulses came for %u sent, or not with their values", values.size(),
          static_cast<uint32_t>(count));
  require(beside_another == 0, "the handler was called while it ran");
}

void a_pulse_of_the_handler_comes_later() {
  const event_manager manager = start_platform().evm;
  const uint32_t pulse = attach(manager);
  resend_below = 3;
  event_send_async(manager, pulse, 1);
  require(comes([] { return taken_pulses().size() == 3; }), "%zu pulses of 3 came",
          taken_pulses().size());
  require(beside_another == 0, "the handler was called while it sent a pulse");
}

}  // namespace

std::vector<check> pulse_checks() {
  return {{"pulses.have_no_manager_0", zero_is_no_manager},
          {"pulses.come_once_and_not_at_once", every_pulse_comes_once},
          {"pulses.of_the_handler_come_later", a_pulse_of_the_handler_comes_later}};
}

}  // namespace conformance
