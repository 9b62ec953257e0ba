// The library started on callbacks from memory, with more and more ports and its polling thread in
// hand. There is one in a process.
#pragma once

#include <cstdint>

namespace bench {

// Has as many ports from then on: 250 of a slot, from slot 1, with the handles from 1 and
// the interface handles from first_ifhandle, two a port.
constexpr std::uint32_t first_ifhandle = 100000;
constexpr std::uint32_t usual_ports = 64;
void grow_to(std::uint32_t ports);
std::uint32_t port_count();
std::uint32_t rsip_of(std::uint32_t port);

// What the thread's processor has spent on it, in seconds.
double thread_seconds();

// Has the polling thread make a cycle and says what that has taken, in seconds of the processor.
double polling_cycle();

}  // namespace bench
