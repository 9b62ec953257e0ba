#include "api/own_request.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <string_view>

#include "base/unix_address.h"

namespace lumd {
namespace {

constexpr std::string_view question = "GET /v1/polling HTTP/1.0\r\n\r\n";
constexpr std::string_view good = "HTTP/1.1 200";

}  // namespace

bool api_answers(const std::filesystem::path &socket, std::chrono::seconds bound) {
  const lum_client::unix_address place(socket);
  const lum_client::descriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (place.problem() || connection.get() < 0) return false;
  const sockaddr_un address = place.socket_address();
  // On a Unix socket the bound for sending holds for connecting too.
  timeval limit = {};
  limit.tv_sec = bound.count();
  ::setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  ::setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  if (::connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) !=
          0 ||
      ::send(connection.get(), question.data(), question.size(), MSG_NOSIGNAL) !=
          static_cast<ssize_t>(question.size())) {
    return false;
  }
  std::array<char, 256> answer = {};
  const ssize_t count = ::recv(connection.get(), answer.data(), answer.size(), 0);
  return count > 0 &&
         std::string_view(answer.data(), static_cast<std::size_t>(count)).starts_with(good);
}

}  // namespace lumd
