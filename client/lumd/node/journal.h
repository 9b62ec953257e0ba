// The journal of the system, as a service's standard error leads to it.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace lumd {

// Whether JOURNAL_STREAM, which the service manager sets, names the stream that the descriptor is.
bool is_journal(int descriptor);

// Writes one entry with a field of its own for each fact, LUM_ before its name. False when the
// journal takes none now: nothing is waited for.
bool tell_journal(int priority, const std::string &message,
                  const std::vector<std::pair<std::string, std::string>> &facts);

}  // namespace lumd
