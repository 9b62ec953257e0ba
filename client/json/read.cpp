#include "json/read.h"

#include "json/document.h"

namespace lum_json {

nlohmann::ordered_json read(std::string_view text, std::string &why) {
  using json = nlohmann::ordered_json;
  bool too_deep = false;
  const auto keep = [&too_deep](int depth, json::parse_event_t, json &) {
    too_deep = too_deep || depth > deepest;
    return !too_deep;
  };
  json document = json::parse(text, keep, false);
  if (too_deep) {
    why = "has more than " + std::to_string(deepest) + " arrays and objects in each other";
    return json(json::value_t::discarded);
  }
  if (document.is_discarded()) why = "is not valid JSON";
  return document;
}

}  // namespace lum_json
