// Sockets of other programs on this machine, such as the system log's and the service manager's.
// Whoever reads them may have stopped: nobody waits for that longer than is said.
#pragma once

#include <chrono>
#include <string_view>

namespace lum_linux {

// Sends `text` as one datagram to the Unix socket at `place`; "@" in front of it stands for the
// abstract namespace. A socket there that takes streams gets it with a zero byte behind it. While
// the other side's queue is full it is waited for, for about `bound` at most; so is a call that
// does not come back, which is left behind on a thread of its own, and an earlier one to that place
// that was. Returns 0, ETIMEDOUT when that time has passed, or the errno of what failed, such as
// ENOENT when nothing is there. Any thread. Without memory or a thread it is tried all the same.
int send_within(std::chrono::milliseconds bound, std::string_view place, std::string_view text);

}  // namespace lum_linux
