// clang-format off
#include <utility>
// clang-format on

#include "api/client.h"

#include <fmt/format.h>
#include <sys/un.h>

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

namespace lumctl {
namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::system::error_code;
using local = net::local::stream_protocol;

constexpr std::chrono::seconds patience(30);
constexpr std::size_t answer_limit = 64 * 1024 * 1024;

api_result unreachable(const std::string &socket, const std::string &why) {
  return {outcome::unreachable, nullptr,
          fmt::format("the driver cannot be reached at {}: {}", socket, why)};
}

http::request<http::string_body> make_request(const std::string &method, const std::string &target,
                                              const json &body) {
  http::request<http::string_body> request;
  request.version(11);
  request.method_string(method);
  request.target(target);
  request.set(http::field::host, "lumd");
  request.keep_alive(false);
  if (!body.is_null()) {
    request.set(http::field::content_type, "application/json");
    request.body() = body.dump(-1, ' ', false, json::error_handler_t::replace);
  }
  request.prepare_payload();
  return request;
}

// Sends the request and reads the answer; every step is bounded by the stream's patience.
error_code exchange(const std::string &socket, const http::request<http::string_body> &request,
                    http::response_parser<http::string_body> &answer) {
  net::io_context loop;
  beast::basic_stream<local> stream(loop);
  beast::flat_buffer buffer;
  error_code result;
  stream.expires_after(patience);
  stream.async_connect(local::endpoint(socket), [&](error_code failed) {
    if ((result = failed)) return;
    http::async_write(stream, request, [&](error_code failed_write, std::size_t) {
      if ((result = failed_write)) return;
      http::async_read(stream, buffer, answer,
                       [&](error_code failed_read, std::size_t) { result = failed_read; });
    });
  });
  loop.run();
  return result;
}

}  // namespace

api_result call(const std::string &socket, const std::string &method, const std::string &target,
                const json &body) {
  if (socket.size() >= sizeof(sockaddr_un::sun_path)) {
    return unreachable(socket, "the path is too long for a socket");
  }
  http::response_parser<http::string_body> answer;
  answer.body_limit(answer_limit);
  const error_code failed = exchange(socket, make_request(method, target, body), answer);
  if (failed) return unreachable(socket, failed.message());

  const json shown = json::parse(answer.get().body(), nullptr, false);
  if (shown.is_discarded()) return unreachable(socket, "the answer is not JSON");
  if (answer.get().result_int() / 100 != 2) {
    const bool has_reason =
        shown.is_object() && shown.contains("error") && shown["error"].is_string();
    return {outcome::refused, nullptr,
            has_reason ? shown["error"].get<std::string>()
                       : fmt::format("the driver refused ({})", answer.get().result_int())};
  }
  return {outcome::done, shown, {}};
}

std::string encoded(const std::string &text) {
  std::string result;
  for (const char c : text) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '-' || c == '_' || c == '.' || c == '~';
    result += plain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return result;
}

}  // namespace lumctl
