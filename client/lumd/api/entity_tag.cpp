#include "api/entity_tag.h"

#include <fmt/format.h>

#include <functional>
#include <string_view>

#include "api/http_server.h"
#include "node/split.h"

namespace lumd {
namespace {

std::string tag_of(const std::string &body) {
  return fmt::format("\"{:x}-{:016x}\"", body.size(), std::hash<std::string>()(body));
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Weak tags mean the same here. The driver's own have no comma in them.
bool is_among(std::string_view tag, std::string_view list) {
  for (std::string_view one : split(list, ',')) {
    one = trimmed(one);
    if (one == "*") return true;
    if (one.starts_with("W/")) one.remove_prefix(2);
    if (one == tag) return true;
  }
  return false;
}

}  // namespace

void spare_what_is_known(const std::string &if_none_match, http_reply &reply) {
  if (reply.status != 200 || reply.stream) return;
  reply.entity_tag = tag_of(reply.body);
  if (!is_among(reply.entity_tag, if_none_match)) return;
  reply.status = 304;
  reply.body.clear();
}

}  // namespace lumd
