#include "api/own_request.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "base/unix_address.h"

namespace lumd {
namespace {

constexpr const char *own_target = "/v1/polling";
constexpr std::string_view good = "HTTP/1.1 200";

// A connected socket, or -1. The bound holds for connecting, sending and receiving each.
int connect_to(const std::filesystem::path &socket, std::chrono::seconds bound) {
  std::error_code ignored;
  const int connection = lum_client::unix_address(socket).connect_within(bound, ignored);
  timeval limit = {};
  limit.tv_sec = bound.count();
  if (connection >= 0) {
    ::setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  return connection;
}

bool answers_within(const http_server &api, std::chrono::seconds bound) {
  http_request request;
  request.method = "GET";
  request.target = own_target;
  return api.comes_round(request, bound);
}

}  // namespace

bool api_answers(const http_server &api, std::chrono::seconds bound) {
  if (api.socket().empty()) return answers_within(api, bound);
  const std::string question = std::string("GET ") + own_target + " HTTP/1.0\r\n\r\n";
  const lum_client::descriptor connection(connect_to(api.socket(), bound));
  if (connection.get() < 0 || ::send(connection.get(), question.data(), question.size(),
                                     MSG_NOSIGNAL) != static_cast<ssize_t>(question.size())) {
    return false;
  }
  std::array<char, 256> answer = {};
  const ssize_t count = ::recv(connection.get(), answer.data(), answer.size(), 0);
  return count > 0 &&
         std::string_view(answer.data(), static_cast<std::size_t>(count)).starts_with(good);
}

}  // namespace lumd
