// The documents that lumd and lumctl speak in, compiled once for all who use them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

extern template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace lum_client {

// In one line. Modules' texts may hold any bytes, a document UTF-8 only: what is none is replaced.
inline std::string dumped(const nlohmann::ordered_json &document) {
  return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace lum_client
