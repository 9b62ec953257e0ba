// clang-format off
#include <utility>
// clang-format on

#include "api/client.h"

#include <fmt/format.h>

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <nlohmann/json.hpp>

#include "api/no_driver.h"
#include "base/unix_address.h"
#include "json/read.h"

namespace lumctl {
namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::system::error_code;
using local = net::local::stream_protocol;

constexpr std::size_t answer_limit = std::size_t{64} * 1024 * 1024;

api_result unreachable(std::string why) { return {outcome::unreachable, nullptr, std::move(why)}; }

using request_type = http::request<http::string_body>;
using answer_parser = http::response_parser<http::string_body>;

request_type make_request(http::verb method, const std::string &target) {
  request_type request;
  request.version(11);
  request.method(method);
  request.target(target);
  request.set(http::field::host, "lumd");
  request.keep_alive(false);
  return request;
}

// Whether something has answered, in words that are no answer.
bool is_of_the_answer(const error_code &failed) {
  return failed.category() == http::make_error_code(http::error::bad_method).category() &&
         failed != http::error::end_of_stream;
}

// The driver took the connection and is gone.
bool has_ended(const error_code &failed) {
  return failed == http::error::end_of_stream || failed == net::error::eof ||
         failed == net::error::connection_reset || failed == net::error::broken_pipe;
}

std::error_code as_standard(const error_code &failed) {
  if (failed == beast::error::timeout) return std::make_error_code(std::errc::timed_out);
  return failed;
}

// Sends the request and reads the answer, all of it within `patience`.
error_code exchange(const std::string &socket, const request_type &request,
                    std::chrono::milliseconds patience, answer_parser &answer) {
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

raw_answer unanswered(std::string why) { return {outcome::unreachable, 0, {}, std::move(why)}; }

raw_answer ask(const std::string &socket, request_type request,
               std::chrono::milliseconds patience) {
  const lum_client::unix_address address(socket);
  if (address.problem()) return unanswered(why_no_driver(socket, address.problem(), patience));
  request.prepare_payload();
  answer_parser answer;
  answer.body_limit(answer_limit);
  const error_code failed = exchange(address.path(), request, patience, answer);
  if (is_of_the_answer(failed)) {
    return unanswered(why_no_answer(socket, "is none: " + failed.message()));
  }
  if (has_ended(failed) && request.method() == http::verb::post) {
    return {outcome::refused,
            0,
            {},
            fmt::format("the driver at {} ended before it answered; its log says why, and what was "
                        "asked for may be done in part",
                        socket)};
  }
  if (failed) return unanswered(why_no_driver(socket, as_standard(failed), patience));
  return {outcome::done, answer.get().result_int(), std::move(answer.get().body()), {}};
}

api_result call(const std::string &socket, request_type request,
                std::chrono::milliseconds patience) {
  const raw_answer answer = ask(socket, std::move(request), patience);
  if (answer.what != outcome::done) return {answer.what, nullptr, answer.error};
  std::string why;
  const auto shown = std::make_shared<const json>(lum_json::read(answer.body, why));
  if (!why.empty()) return unreachable(why_no_answer(socket, why));
  if (answer.status / 100 != 2) {
    return {outcome::refused, nullptr,
            reason_in(*shown).value_or(fmt::format("the driver refused ({})", answer.status))};
  }
  return {outcome::done, shown, {}};
}

}  // namespace

api_result get(const std::string &socket, const std::string &target,
               std::chrono::milliseconds patience) {
  return call(socket, make_request(http::verb::get, target), patience);
}

raw_answer get_as_it_is(const std::string &socket, const std::string &target,
                        std::chrono::milliseconds patience) {
  return ask(socket, make_request(http::verb::get, target), patience);
}

api_result post(const std::string &socket, const std::string &target, const json &body,
                std::chrono::milliseconds patience) {
  request_type request = make_request(http::verb::post, target);
  request.set(http::field::content_type, "application/json");
  request.body() = body.dump(-1, ' ', false, json::error_handler_t::replace);
  return call(socket, std::move(request), patience);
}

std::optional<std::string> reason_in(const json &problem) {
  if (!problem.is_object()) return std::nullopt;
  const auto found = problem.find("detail");
  if (found == problem.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
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
