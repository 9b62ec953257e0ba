// The details of an event as the text that is kept of them.
#pragma once

#include <string>
#include <vector>

#include "records/event.h"

namespace lumd {

std::string encode_details(const std::vector<event::detail> &details);

// What is not as encode_details() makes it, is left out.
std::vector<event::detail> decode_details(const std::string &text);

}  // namespace lumd
