// What changes something: runs on a thread of its own, because a module that hangs holds it up for
// as long as it hangs, and replies within a bound all the same.
#pragma once

#include <chrono>
#include <functional>

#include "api/reply.h"

namespace lumd {

// So much longer may an action take than it is to wait for confirmations.
inline constexpr std::chrono::milliseconds wait_margin(3000);

// Runs `work` and returns its reply. Work that has not ended after `bound` goes on alone, and the
// reply says so (202); when too much does already, `work` is not begun (503). What it uses must
// live until the process ends. An exception of it becomes this call's.
api_reply act(std::chrono::milliseconds bound, std::function<api_reply()> work);

}  // namespace lumd
