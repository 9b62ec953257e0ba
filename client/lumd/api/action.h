// What changes something: runs on a thread of its own, because a module that hangs holds it up for
// as long as it hangs, and replies within a bound all the same.
#pragma once

#include <chrono>
#include <functional>

#include "cerr.h"
#include "router.h"

namespace lumd {

using action_clock = std::chrono::steady_clock;

// Runs `work` and returns its reply. Work that has not ended after `bound` goes on alone, and the
// reply says so (202); when too much does already, `work` is not begun (503). What it uses must
// live until the process ends. An exception of it becomes this call's.
api_reply act(std::chrono::milliseconds bound, std::function<api_reply()> work);

// Every reply of an action has "result", what the library or the platform answered, null when there
// is no answer yet; "complete", whether everything asked for has come about; and, if it has not,
// the "reason".
json result_of(cerrno rc);
void conclude(json &reply, bool complete, const std::string &reason);

}  // namespace lumd
