// What is tried while the platform fails: every exported function of the library, and what it runs
// by itself.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "lum.h"

namespace failing_platform {

inline constexpr uint32_t slot = 3;
inline constexpr uint32_t two_ports[] = {7, 8};
inline constexpr uint32_t port_rsip = 0x30007;

// By the name of the function; where it is tried in more than one way, with " of" what behind it.
// What is no exported function is in brackets.
using call_table = std::map<std::string, std::function<void()>>;

// On a running library with ports 7 and 8 of slot 3 and their controllers. Each call is made once
// in a process, after prepare_calls().
const call_table &port_calls();
const call_table &plain_calls();
void prepare_calls();

struct start_up_call {
  bool is_after_lib_init;  // whether lum_lib_init() comes before it
  std::function<uint32_t()> make;
};
// In a process that has not started the library.
const std::map<std::string, start_up_call> &start_up_calls();

}  // namespace failing_platform
