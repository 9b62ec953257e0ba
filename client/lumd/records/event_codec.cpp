#include "records/event_codec.h"

#include "json/document.h"

namespace lumd {
namespace {

using json = nlohmann::ordered_json;

}  // namespace

std::string encode_details(const std::vector<event::detail> &details) {
  json document = json::object();
  for (const auto &[name, value] : details) {
    std::visit([&, &key = name](const auto &given) { document[key] = given; }, value);
  }
  return lum_client::dumped(document);
}

std::vector<event::detail> decode_details(const std::string &text) {
  const json document = json::parse(text, nullptr, false);
  std::vector<event::detail> details;
  if (!document.is_object()) return details;
  for (const auto &[name, value] : document.items()) {
    if (value.is_boolean()) details.emplace_back(name, value.get<bool>());
    if (value.is_number_integer()) details.emplace_back(name, value.get<int64_t>());
    if (value.is_string()) details.emplace_back(name, value.get<std::string>());
  }
  return details;
}

}  // namespace lumd
