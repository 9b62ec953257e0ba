#include "api/router.h"

#include <algorithm>
#include <optional>

#include "json/read.h"
#include "node/split.h"
#include "words/schema.h"

namespace lumd {
namespace {

// The document under the schema's number, which comes first.
json versioned(json body) {
  json document = {{"schema", lum_words::api_schema}};
  for (auto &[name, value] : body.items()) document[name] = std::move(value);
  return document;
}

http_reply to_http(api_reply reply) {
  http_reply result;
  result.status = reply.status;
  if (reply.stream) {
    result.content_type = "text/event-stream";
    result.stream = std::move(reply.stream);
    return result;
  }
  if (!reply.text_type.empty()) {
    result.content_type = reply.text_type;
    result.body = reply.text;
    return result;
  }
  // Module texts may hold any bytes; JSON holds UTF-8 only.
  const json document = versioned(std::move(reply.body));
  result.body = document.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
  return result;
}

std::optional<unsigned> hex_digit(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
  return std::nullopt;
}

// Takes %XX apart; nothing when a % is followed by anything else.
std::optional<std::string> percent_decode(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      result += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const auto high = hex_digit(text[i + 1]);
    const auto low = hex_digit(text[i + 2]);
    if (!high || !low) return std::nullopt;
    result += static_cast<char>(*high << 4 | *low);
    i += 2;
  }
  return result;
}

// The segments that stand for each {}, when the path matches.
std::optional<std::vector<std::string_view>> match(std::string_view pattern,
                                                   std::string_view path) {
  const auto wanted = split(pattern, '/');
  const auto found = split(path, '/');
  if (wanted.size() != found.size()) return std::nullopt;
  std::vector<std::string_view> parameters;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (wanted[i] == "{}" && !found[i].empty()) {
      parameters.push_back(found[i]);
    } else if (wanted[i] != found[i]) {
      return std::nullopt;
    }
  }
  return parameters;
}

// Fills in all of `request` but the route's parameters; returns what is wrong with it, or nothing.
std::string read_request(const http_request &source, std::string_view query_text,
                         api_request &request) {
  for (const std::string_view pair : split(query_text, '&')) {
    if (pair.empty()) continue;
    const std::size_t equals = pair.find('=');
    const auto key = percent_decode(pair.substr(0, equals));
    const auto value = percent_decode(equals == std::string_view::npos ? std::string_view()
                                                                       : pair.substr(equals + 1));
    if (!key || !value) return "the query is not properly encoded";
    request.query[*key] = *value;
  }
  if (source.body.empty()) return {};
  std::string why;
  request.body = lum_json::read(source.body, why);
  return why.empty() ? why : "the body " + why;
}

}  // namespace

http_reply answer(driver &node, std::span<const std::span<const route>> groups,
                  const http_request &request) {
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
      if (candidate.method != request.method) {
        allow += (allow.empty() ? "" : ", ") + std::string(candidate.method);
        continue;
      }
      if (request.read_only && request.method != "GET") {
        return to_http(refuse(403, "only the driver's own socket takes changes"));
      }
      api_request parsed;
      parsed.accept = request.accept;
      parsed.last_event_id = request.last_event_id;
      parsed.user = request.user;
      for (const std::string_view parameter : *found) {
        const auto decoded = percent_decode(parameter);
        if (!decoded) return to_http(refuse(400, "the path is not properly encoded"));
        parsed.parameters.push_back(*decoded);
      }
      if (const auto wrong = read_request(request, query_text, parsed); !wrong.empty()) {
        return to_http(refuse(400, wrong));
      }
      return to_http(candidate.handle(node, parsed));
    }
  }
  if (allow.empty()) return to_http(refuse(404, "there is nothing at this path"));
  http_reply reply = to_http(refuse(405, "this path takes " + allow));
  reply.allow = allow;
  return reply;
}

}  // namespace lumd
