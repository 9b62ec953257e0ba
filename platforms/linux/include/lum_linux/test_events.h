// Test events: sends texts to the handlers registered through test_event.h.
//
// What holds for every call stands in lum_linux/services.h.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cerr.h"

namespace lum_linux {

// Runs the handler of a test on the calling thread; one at a time in the whole process. Waits for
// a handler that another thread is running. Returns 0, 2 for an unknown suite or test, or 35 when
// called from a handler.
cerrno test_event_send(const std::string &suite, uint32_t test_id, const std::string &text);

struct test_suite {
  std::string name;
  std::vector<uint32_t> test_ids;
};
std::vector<test_suite> test_suites();

}  // namespace lum_linux
