#include "json/read.h"

#include <set>
#include <string>
#include <vector>

#include "json/document.h"

namespace lum_json {

nlohmann::ordered_json read(std::string_view text, std::string &why) {
  using json = nlohmann::ordered_json;
  bool too_deep = false;
  std::string repeated;
  std::vector<std::set<std::string>> members;  // of each object that is open
  const auto keep = [&](int depth, json::parse_event_t event, json &part) {
    too_deep = too_deep || depth > deepest;
    if (event == json::parse_event_t::object_start) members.emplace_back();
    if (members.empty()) return !too_deep;
    if (event == json::parse_event_t::object_end) members.pop_back();
    if (event == json::parse_event_t::key &&
        !members.back().insert(part.get<std::string>()).second) {
      repeated = part.get<std::string>();
    }
    return !too_deep;
  };
  json document = json::parse(text, keep, false);
  if (too_deep) {
    why = "has more than " + std::to_string(deepest) + " arrays and objects in each other";
    return json(json::value_t::discarded);
  }
  if (document.is_discarded()) {
    why = "is not valid JSON";
  } else if (!repeated.empty()) {
    why = "has \"" + repeated + "\" twice";
    return json(json::value_t::discarded);
  }
  return document;
}

}  // namespace lum_json
