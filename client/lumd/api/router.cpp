#include "api/router.h"

#include <algorithm>
#include <optional>

#include "api/entity_tag.h"
#include "api/query.h"
#include "json/read.h"
#include "node/driver.h"
#include "node/split.h"

namespace lumd {
namespace {

// The segments that stand for each in braces, when the path matches.
std::optional<std::vector<std::string_view>> match(std::string_view pattern,
                                                   std::string_view path) {
  const auto wanted = split(pattern, '/');
  const auto found = split(path, '/');
  if (wanted.size() != found.size()) return std::nullopt;
  std::vector<std::string_view> parameters;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (wanted[i].starts_with('{') && !found[i].empty()) {
      parameters.push_back(found[i]);
    } else if (wanted[i] != found[i]) {
      return std::nullopt;
    }
  }
  return parameters;
}

// Fills in all of `parsed` but the route's parameters; returns what is wrong with it, or nothing.
std::string read_request(const http_request &source, const route &wanted,
                         std::string_view query_text, api_request &parsed) {
  parsed.accept = source.accept;
  parsed.last_event_id = source.last_event_id;
  parsed.user = source.user;
  std::string wrong = read_query(query_text, wanted.known_queries(), parsed.query);
  if (!wrong.empty() || source.body.empty()) return wrong;
  parsed.body = lum_json::read(source.body, wrong);
  return wrong.empty() ? wrong : "the body " + wrong;
}

api_reply answer_by(driver &node, const route &chosen,
                    const std::vector<std::string_view> &parameters, std::string_view query_text,
                    const http_request &request) {
  if (!request.barred.empty() && request.method != "GET") return refuse(403, request.barred);
  api_request parsed;
  for (const std::string_view parameter : parameters) {
    const auto decoded = percent_decode(parameter);
    if (!decoded) return refuse(400, "the path is not properly encoded");
    parsed.parameters.push_back(*decoded);
  }
  if (const auto wrong = read_request(request, chosen, query_text, parsed); !wrong.empty()) {
    return refuse(400, wrong);
  }
  api_reply reply = chosen.handle(node, parsed);
  if (request.method != "GET") node.look_soon();
  return reply;
}

// What `allow` names is what a path takes that the method is not among.
api_reply refuse_target(const std::string &allow) {
  if (allow.empty()) return refuse(404, "there is nothing at this path");
  api_reply reply = refuse(405, "this path takes " + allow);
  reply.allow = allow;
  return reply;
}

api_reply find_answer(driver &node, route_groups groups, const http_request &request) {
  const std::string_view target = request.target;
  const std::size_t question = target.find('?');
  const std::string_view path = target.substr(0, question);
  const std::string_view query_text =
      question == std::string_view::npos ? std::string_view() : target.substr(question + 1);
  std::string allow;
  for (const auto &group : groups) {
    for (const route &candidate : group) {
      const auto found = match(candidate.pattern, path);
      if (!found) continue;
      if (candidate.method == request.method) {
        return answer_by(node, candidate, *found, query_text, request);
      }
      if (!allow.empty()) allow += ", ";
      allow += candidate.method == "GET" ? "GET, HEAD" : candidate.method;
    }
  }
  return refuse_target(allow);
}

}  // namespace

std::span<const std::string_view> route::known_queries() const {
  const auto end = std::find(queries.begin(), queries.end(), std::string_view());
  return {queries.begin(), end};
}

http_reply answer(driver &node, route_groups groups, const http_request &request) {
  http_reply reply = to_http(find_answer(node, groups, request));
  if (request.method == "GET") spare_what_is_known(request.if_none_match, reply);
  return reply;
}

}  // namespace lumd
