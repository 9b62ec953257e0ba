#include "api/reply.h"

#include <fmt/format.h>

#include "api/problem.h"
#include "json/document.h"
#include "node/find_port.h"
#include "words/schema.h"

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

// The document under the schema's number, which comes first.
json versioned(json body) {
  json document = {{"schema", lum_words::api_schema}};
  for (auto &[name, value] : body.items()) document[name] = std::move(value);
  return document;
}

}  // namespace

std::optional<std::string> queried(const api_request &request, const std::string &key) {
  const auto found = request.query.find(key);
  return found == request.query.end() ? std::nullopt : std::optional(found->second);
}

bool is_queried(const api_request &request, const std::string &key, std::string &wrong) {
  const auto value = queried(request, key);
  if (!value || *value == "false") return false;
  if (!value->empty() && *value != "true") {
    wrong = fmt::format("\"{}\" is \"{}\", expected true or false", key, *value);
  }
  return true;
}

http_reply to_http(api_reply reply) {
  http_reply result;
  result.status = reply.status;
  result.allow = std::move(reply.allow);
  if (reply.stream) {
    result.content_type = "text/event-stream";
    result.stream = std::move(reply.stream);
    return result;
  }
  if (!reply.text_type.empty()) {
    result.content_type = reply.text_type;
    result.body = std::move(reply.text);
    return result;
  }
  if (reply.status >= 400) result.content_type = problem_type;
  result.body = lum_client::dumped(versioned(std::move(reply.body)));
  if (!reply.member_name.empty()) {
    // Behind the schema's number.
    result.body.insert(result.body.find_first_of(",}"),
                       fmt::format(",\"{}\":{}", reply.member_name, reply.member_text));
  }
  result.body += '\n';
  return result;
}

api_reply refuse(unsigned status, const std::string &message) {
  return {status, problem(status, message)};
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
