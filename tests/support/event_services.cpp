#include <optional>
#include <thread>

#include "events.h"
#include "record.h"
#include "script.h"

namespace support {

event_stage &events = *new event_stage;

struct event_calls {
  static constexpr uint32_t first_pulse = 0x70;

  static uint32_t attach(event_manager manager, event_async_handler run) {
    const std::lock_guard hold(events.lock_);
    events.handlers_.push_back({manager, run});
    return first_pulse + static_cast<uint32_t>(events.handlers_.size()) - 1;
  }

  static void queue(uint32_t pulse, uint64_t value) {
    const std::lock_guard hold(events.lock_);
    events.pulses_.emplace_back(pulse, value);
  }

  static std::optional<std::pair<uint32_t, uint64_t>> take() {
    const std::lock_guard hold(events.lock_);
    if (events.pulses_.empty()) return std::nullopt;
    const auto first = events.pulses_.front();
    events.pulses_.erase(events.pulses_.begin());
    return first;
  }

  static std::optional<event_stage::handler> handler_of(uint32_t pulse) {
    const std::lock_guard hold(events.lock_);
    const std::size_t index = pulse - first_pulse;
    if (index >= events.handlers_.size()) return std::nullopt;
    return events.handlers_[index];
  }

  static void open_suite(const char *name, const test_event_record *records, uint32_t count) {
    const std::lock_guard hold(events.lock_);
    events.suites_[name].assign(records, records + count);
  }

  static void close_suite(const char *name) {
    const std::lock_guard hold(events.lock_);
    events.suites_.erase(name);
  }
};

unsigned event_stage::run_pulses() {
  unsigned count = 0;
  std::thread loop([&] {
    while (const auto pulse = event_calls::take()) {
      if (const auto to = event_calls::handler_of(pulse->first)) {
        to->run(to->manager, pulse->first, pulse->second);
      }
      ++count;
    }
  });
  loop.join();
  return count;
}

void event_stage::send_test(const std::string &suite, uint32_t test_id, const char *text) {
  std::vector<test_event_record> records;
  {
    const std::lock_guard hold(lock_);
    records = suites_[suite];
  }
  for (const test_event_record &each : records) {
    if (each.test_id == test_id) each.handler(nullptr, text);
  }
}

}  // namespace support

using namespace support;

void *event_manager_levm_get(event_manager manager) {
  note("event_manager_levm_get", hex{manager});
  static int local;
  return script.verdict("event_manager_levm_get") ? nullptr : &local;
}

uint32_t event_async_attach(event_manager manager, uint32_t priority, event_async_handler handler,
                            uint32_t flags) {
  note("event_async_attach", hex{manager}, priority, flags);
  if (script.verdict("event_async_attach")) return EVENT_PULSE_NONE;
  return event_calls::attach(manager, handler);
}

uint32_t event_send_async(event_manager manager, uint32_t pulse, uint64_t value) {
  note("event_send_async", hex{manager}, hex{pulse}, value);
  if (const auto code = script.verdict("event_send_async")) return *code;
  event_calls::queue(pulse, value);
  return 0;
}

cerrno test_event_init_tests_v2(const char *suite, uint32_t flags, uint64_t client,
                                const test_event_record *records, uint32_t count) {
  note("test_event_init_tests_v2", suite, flags, hex{client}, count);
  if (const auto code = script.verdict("test_event_init_tests_v2")) return *code;
  event_calls::open_suite(suite, records, count);
  return 0;
}

void test_event_close_tests(const char *suite) {
  note("test_event_close_tests", suite);
  event_calls::close_suite(suite);
}

cerrno ea_server_register(const ea_server_registration *registration) {
  note("ea_server_register", static_cast<const char *>(registration->name), registration->restart);
  events.entity_agent = *registration;
  return script.answer("ea_server_register");
}
