#include "api/reply.h"

#include "node/find_port.h"

namespace lumd {
namespace {

unsigned status_of(refusal_kind kind) {
  switch (kind) {
    case refusal_kind::wrong:
      return 400;
    case refusal_kind::unknown:
      return 404;
    case refusal_kind::conflict:
      return 409;
  }
  return 500;
}

}  // namespace

std::optional<std::string> queried(const api_request &request, const std::string &key) {
  const auto found = request.query.find(key);
  return found == request.query.end() ? std::nullopt : std::optional(found->second);
}

api_reply refuse(unsigned status, const std::string &message) {
  return {status, {{"error", message}}};
}

api_reply refuse(const refusal &refused) { return refuse(status_of(refused.kind), refused.reason); }

api_reply refuse_port(const lum_linux::node_description &node, const std::string &name) {
  return refuse(reason_against_port(node, name));
}

void keep_sub_port(std::optional<uint32_t> wanted, json &sub_ports) {
  if (!wanted) return;
  json kept = json::array();
  for (json &one : sub_ports) {
    if (one.at("sub_port") == *wanted) kept.push_back(std::move(one));
  }
  sub_ports = std::move(kept);
}

}  // namespace lumd
