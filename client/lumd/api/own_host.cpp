#include "api/own_host.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>

namespace lumd {
namespace {

bool is_host_letter(unsigned char letter) {
  return std::isalnum(letter) != 0 || letter == '-' || letter == '.' || letter == '_';
}

// Nothing, or a colon and digits.
bool is_port_text(std::string_view text) {
  return text.empty() || (text[0] == ':' && std::all_of(text.begin() + 1, text.end(), [](char c) {
                            return c >= '0' && c <= '9';
                          }));
}

// An IPv6 address, one of IPv4 as one that is mapped.
std::optional<in6_addr> address_in(const std::string &text) {
  in_addr v4 = {};
  const bool is_v4 = inet_pton(AF_INET, text.c_str(), &v4) == 1;
  in6_addr address = {};
  const std::string whole = is_v4 ? "::ffff:" + text : text;
  if (inet_pton(AF_INET6, whole.c_str(), &address) != 1) return std::nullopt;
  return address;
}

bool is_loopback(const in6_addr &address) {
  return IN6_IS_ADDR_LOOPBACK(&address) ||
         (IN6_IS_ADDR_V4MAPPED(&address) && address.s6_addr[12] == 127);
}

bool is_same_address(const in6_addr &one, const std::optional<in6_addr> &other) {
  return other && std::memcmp(&one, &*other, sizeof one) == 0;
}

}  // namespace

std::optional<std::string> host_in(const std::string &field) {
  const std::string_view text = field;
  std::string host;
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos || !is_port_text(text.substr(end + 1))) return std::nullopt;
    host = text.substr(1, end - 1);
    in6_addr address = {};
    if (inet_pton(AF_INET6, host.c_str(), &address) != 1) return std::nullopt;
  } else {
    const std::size_t end = std::min(text.find(':'), text.size());
    host = text.substr(0, end);
    if (!std::all_of(host.begin(), host.end(), is_host_letter) || !is_port_text(text.substr(end)) ||
        (host.empty() && !text.empty())) {
      return std::nullopt;
    }
  }
  std::transform(host.begin(), host.end(), host.begin(),
                 [](unsigned char letter) { return std::tolower(letter); });
  return host;
}

bool is_own_host(const std::string &host, const std::string &address,
                 const std::vector<std::string> &names) {
  if (host.empty() || host == "localhost" ||
      std::find(names.begin(), names.end(), host) != names.end()) {
    return true;
  }
  const auto meant = address_in(host);
  return meant && (is_loopback(*meant) || is_same_address(*meant, address_in(address)));
}

}  // namespace lumd
