#include "api/index.h"

#include <nlohmann/json.hpp>
#include <string>

namespace lumd {
namespace {

constexpr const char *openapi_path = "/v1/openapi.json";

// Null where the document has none.
json summary_of(const route &one) {
  static const json document = json::parse(openapi_text());
  std::string method(one.method);
  for (char &letter : method) letter = static_cast<char>(letter - 'A' + 'a');
  const json &paths = document.at("paths");
  const auto path = paths.find(std::string(one.pattern));
  if (path == paths.end() || !path->contains(method)) return nullptr;
  return path->at(method).at("summary");
}

json show_route(const route &one) {
  return {{"path", one.pattern},
          {"method", one.method},
          {"query", one.known_queries()},
          {"summary", summary_of(one)}};
}

}  // namespace

json show_index(route_groups groups) {
  json paths = json::array();
  for (const auto &group : groups) {
    for (const route &one : group) paths.push_back(show_route(one));
  }
  return {{"openapi", openapi_path}, {"paths", std::move(paths)}};
}

}  // namespace lumd
