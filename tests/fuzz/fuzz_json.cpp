// Bodies of requests and answers, of any bytes. A document that is taken is no deeper than allowed,
// has no member twice, and is the same when it is written and read again; one that is not has a
// word why.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "json/document.h"
#include "json/read.h"

namespace {

int depth_of(const nlohmann::ordered_json &document) {
  int deepest = 0;
  if (!document.is_structured()) return 0;
  for (const auto &part : document) deepest = std::max(deepest, depth_of(part));
  return deepest + 1;
}

std::size_t members_of(const nlohmann::ordered_json &document) {
  std::size_t number = document.is_object() ? document.size() : 0;
  if (!document.is_structured()) return 0;
  for (const auto &part : document) number += members_of(part);
  return number;
}

// As often as the text names a member, whether it is there already or not.
std::size_t names_in(std::string_view text) {
  std::size_t number = 0;
  const auto count = [&number](int, nlohmann::ordered_json::parse_event_t event,
                               nlohmann::ordered_json &) {
    if (event == nlohmann::ordered_json::parse_event_t::key) ++number;
    return true;
  };
  if (nlohmann::ordered_json::parse(text, count, false).is_discarded()) std::abort();
  return number;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string why;
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  const auto document = lum_json::read(text, why);
  if (document.is_discarded() != !why.empty()) std::abort();
  if (document.is_discarded()) return 0;
  if (depth_of(document) > lum_json::deepest + 1) std::abort();
  if (members_of(document) != names_in(text)) std::abort();
  const std::string written = document.dump();
  if (lum_json::read(written, why).dump() != written) std::abort();
  return 0;
}
