#include "api/reply.h"

#include <fmt/format.h>

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

api_reply refuse(unsigned status, const std::string &message) {
  return {status, {{"error", message}}};
}

api_reply refuse(const refusal &refused) { return refuse(status_of(refused.kind), refused.reason); }

api_reply refuse_unknown_port(const std::string &name) {
  return refuse(404, fmt::format("the node has no port \"{}\"", name));
}

}  // namespace lumd
