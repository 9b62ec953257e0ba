// What the checks are made of. A check is a function that returns when what it is called after
// holds; require() ends it otherwise. It has a process of its own, so it starts what it needs and
// takes nothing down.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "lum_conformance.h"

namespace conformance {

// Thrown by a check: what was seen, in place of what should have been.
struct failure {
  std::string seen;
};
// Thrown by a check that does not apply to this platform, with the reason.
struct no_case {
  std::string reason;
};

// Ends the check unless `held`. On the check's own thread only.
void require(bool held, const char *seen, ...) __attribute__((format(printf, 2, 3)));

struct check {
  const char *name;
  void (*run)();
  void (*after_kill)() = nullptr;  // in another process, after the first was killed where it ended
};
std::vector<check> text_checks();
std::vector<check> trace_checks();
std::vector<check> tree_checks();
std::vector<check> pulse_checks();
std::vector<check> checkpoint_checks();
std::vector<check> store_checks();
std::vector<check> module_checks();
std::vector<check> led_checks();
std::vector<check> reply_checks();
std::vector<check> node_checks();

// The platform under test, and what it gave when it was started in this process.
const lum_conformance_platform &platform();
const lum_infra_params &start_platform();
const lum_platform_cbs &callbacks();  // of the started platform

// Where the port's cage is.
struct cage {
  uint32_t slot, instance, port;
};
cage port_cage();

// How long a check waits for what has to come, and for what must not come.
std::chrono::milliseconds patience();
constexpr std::chrono::milliseconds settling_time{300};
bool comes(const std::function<bool()> &condition);

}  // namespace conformance
