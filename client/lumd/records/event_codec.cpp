#include "records/event_codec.h"

#include "json/document.h"

namespace lumd {
namespace {

using json = nlohmann::ordered_json;

}  // namespace

// Without a document of them all, which would take memory to be destroyed: nobody asks for this, so
// none is in reserve for it.
std::string encode_details(const std::vector<event::detail> &details) {
  std::string text = "{";
  for (const auto &[name, value] : details) {
    if (text.size() > 1) text += ',';
    text += lum_client::dumped(json(name)) + ':';
    text += std::visit([](const auto &given) { return lum_client::dumped(json(given)); }, value);
  }
  return text + '}';
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
