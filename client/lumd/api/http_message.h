// HTTP's messages as they go over the wire. Heavy: of http_session.h alone.
#pragma once

// clang-format off
#include <utility>
// clang-format on

#include <algorithm>
#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <optional>
#include <string>

#include "api/http_server.h"
#include "api/problem.h"

namespace lumd {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::system::error_code;

inline constexpr unsigned http_version = 11;

inline http::response<http::string_body> to_message(const http_reply &reply, bool keep_alive) {
  http::response<http::string_body> message(static_cast<http::status>(reply.status), http_version);
  if (reply.status != 304) message.set(http::field::content_type, reply.content_type);
  message.set("X-Content-Type-Options", "nosniff");  // a module's texts are never markup
  // What has a tag may be kept, and is asked for again each time.
  message.set(http::field::cache_control, reply.entity_tag.empty() ? "no-store" : "no-cache");
  if (!reply.entity_tag.empty()) message.set(http::field::etag, reply.entity_tag);
  if (!reply.policy.empty()) message.set("Content-Security-Policy", reply.policy);
  if (!reply.allow.empty()) message.set(http::field::allow, reply.allow);
  message.keep_alive(keep_alive);
  message.body() = reply.body;
  message.prepare_payload();
  if (reply.status == 304) message.erase(http::field::content_length);  // it would be the body's
  return message;
}

// What goes back for a request that could not be read; nothing does when the peer just went away.
inline std::optional<http_reply> answer_to_unreadable(const error_code &error) {
  if (error == http::error::header_limit || error == http::error::buffer_overflow) {
    return problem_reply(431, "the request's header is too long");
  }
  if (error == http::error::body_limit) {
    return problem_reply(413, "the request's body is too long");
  }
  if (error.category() == http::make_error_code(http::error::bad_method).category() &&
      error != http::error::end_of_stream && error != http::error::partial_message) {
    return problem_reply(400, "not a valid HTTP request");
  }
  return std::nullopt;
}

// A header that may be given several times, as the one list that it means.
inline std::string list_of(const http::fields &fields, http::field header) {
  std::string list;
  const auto [first, last] = fields.equal_range(header);
  std::for_each(first, last, [&list](const auto &one) {
    list += (list.empty() ? "" : ",") + std::string(one.value());
  });
  return list;
}

// What a reader of a stream gives back.
inline constexpr const char *last_event_id = "Last-Event-ID";

// What a handler is to know of it; who asks is not in it.
template <typename Message>
http_request request_of(const Message &message) {
  http_request request;
  request.method = std::string(message.method_string());
  request.target = std::string(message.target());
  request.body = message.body();
  request.accept = list_of(message, http::field::accept);
  request.if_none_match = list_of(message, http::field::if_none_match);
  request.last_event_id = std::string(message[last_event_id]);
  return request;
}

// Whether a header is given with anything but `known`.
inline bool has_other(const http::fields &fields, http::field header, const char *known) {
  const auto [first, last] = fields.equal_range(header);
  return std::any_of(first, last,
                     [&](const auto &one) { return !beast::iequals(one.value(), known); });
}

// Of a request that is not what it seems. Where its body ends may not be known either, so nothing
// that comes behind it is a request.
inline std::optional<http_reply> refusal_of_header(const http::fields &fields) {
  if (has_other(fields, http::field::transfer_encoding, "chunked")) {
    return problem_reply(
        501, "the request's Transfer-Encoding is unknown here, expected chunked or none");
  }
  if (has_other(fields, http::field::content_encoding, "identity")) {
    return problem_reply(415,
                         "the request's Content-Encoding is unknown here: send the body as it is");
  }
  for (const char *const header : {"Host", last_event_id}) {
    if (fields.count(header) > 1) {
      return problem_reply(400, "the request has more than one " + std::string(header));
    }
  }
  return std::nullopt;
}

}  // namespace lumd
