// The documents that the API speaks in.
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace lumd {

// Objects keep the order in which their members were put in: people read them too.
using json = nlohmann::ordered_json;

}  // namespace lumd
