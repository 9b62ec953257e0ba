#include "api/own_request.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string_view>

#include "base/unix_address.h"

namespace lumd {
namespace {

constexpr std::string_view question = "GET /v1/polling HTTP/1.0\r\nHost: localhost\r\n\r\n";
constexpr std::string_view good = "HTTP/1.1 200";

// A connected socket, or -1. The bound holds for connecting, sending and receiving each.
template <typename Address>
int connect_within(std::chrono::seconds bound, const Address &address) {
  const auto *const to = reinterpret_cast<const sockaddr *>(&address);
  const int connection = ::socket(to->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connection < 0) return -1;
  timeval limit = {};
  limit.tv_sec = bound.count();
  ::setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  if (::connect(connection, to, sizeof address) == 0) return connection;
  ::close(connection);
  return -1;
}

int connect_to(const std::filesystem::path &socket, std::chrono::seconds bound) {
  const lum_client::unix_address place(socket);
  return place.problem() ? -1 : connect_within(bound, place.socket_address());
}

int connect_to(std::uint16_t port, std::chrono::seconds bound) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return connect_within(bound, address);
}

}  // namespace

bool api_answers(const http_server &api, std::chrono::seconds bound) {
  const lum_client::descriptor connection(api.socket().empty() ? connect_to(api.tcp_port(), bound)
                                                               : connect_to(api.socket(), bound));
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
