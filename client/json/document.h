// The documents that lumd and lumctl speak in, compiled once for all who use them.
#pragma once

#include <nlohmann/json.hpp>

extern template class nlohmann::basic_json<nlohmann::ordered_map>;
