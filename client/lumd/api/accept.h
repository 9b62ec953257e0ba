// What a peer would like to get.
#pragma once

#include <string_view>

namespace lumd {

// Whether an Accept header names event streams, and not as what is not wanted.
bool accepts_event_stream(std::string_view accept);

}  // namespace lumd
