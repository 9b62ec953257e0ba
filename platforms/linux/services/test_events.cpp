// Test events. A handler runs on the thread that sends the text, one handler at a time.
#include "lum_linux/test_events.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <map>
#include <mutex>
#include <span>

#include "services/immortal.h"
#include "services/one_at_a_time.h"
#include "test_event.h"

namespace {

using records = std::span<const test_event_record>;

struct suite_registry {
  std::mutex lock;  // guards the suites; not held while a handler runs
  std::map<std::string, records, std::less<>> suites;
  lum_linux::one_at_a_time gate;  // entered before the lock is taken
};

suite_registry &registry() {
  static lum_linux::immortal<suite_registry> the_registry;
  return *the_registry;
}

test_event_handler handler_of(const std::string &suite, uint32_t test_id) {
  const std::lock_guard hold(registry().lock);
  const auto found = registry().suites.find(suite);
  if (found == registry().suites.end()) return nullptr;
  const auto record = std::find_if(found->second.begin(), found->second.end(),
                                   [&](const auto &r) { return r.test_id == test_id; });
  return record == found->second.end() ? nullptr : record->handler;
}

}  // namespace

// No test of the suite may be without a handler. The client's event manager is not needed.
cerrno test_event_init_tests_v2(const char *suite, uint32_t flags, uint64_t,
                                const test_event_record *first, uint32_t count) {
  if (suite == nullptr || *suite == '\0' || flags != 0) return EINVAL;
  if (first == nullptr || count == 0) return EINVAL;
  const records tests(first, count);
  if (std::any_of(tests.begin(), tests.end(), [](const auto &r) { return r.handler == nullptr; })) {
    return EINVAL;
  }
  try {
    const std::lock_guard hold(registry().lock);
    return registry().suites.try_emplace(suite, tests).second ? 0 : EEXIST;
  } catch (const std::exception &) {
    return ENOMEM;
  }
}

// A handler that closes a suite is the only one running, and not waited for.
void test_event_close_tests(const char *suite) {
  if (suite == nullptr) return;
  const lum_linux::entered gate(registry().gate);
  const std::lock_guard hold(registry().lock);
  const auto found = registry().suites.find(std::string_view(suite));
  if (found != registry().suites.end()) registry().suites.erase(found);
}

namespace lum_linux {

cerrno test_event_send(const std::string &suite, uint32_t test_id, const std::string &text) {
  const entered gate(registry().gate);
  if (!gate) return EDEADLK;
  const test_event_handler handler = handler_of(suite, test_id);
  if (handler == nullptr) return ENOENT;
  handler(nullptr, text.c_str());
  return 0;
}

std::vector<test_suite> test_suites() {
  const std::lock_guard hold(registry().lock);
  std::vector<test_suite> all;
  for (const auto &[name, tests] : registry().suites) {
    test_suite suite{name, {}};
    for (const test_event_record &record : tests) suite.test_ids.push_back(record.test_id);
    all.push_back(std::move(suite));
  }
  return all;
}

}  // namespace lum_linux
