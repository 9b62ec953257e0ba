#include "description/receiver_address.h"

#include <arpa/inet.h>

#include <algorithm>

namespace lum_linux {
namespace {

// 0 for what is no port to send to.
uint16_t port_of(const std::string &digits) {
  const bool are_digits =
      std::all_of(digits.begin(), digits.end(), [](char one) { return one >= '0' && one <= '9'; });
  if (digits.empty() || digits.size() > 5 || !are_digits) return 0;
  const unsigned long number = std::stoul(digits);
  return number > UINT16_MAX ? 0 : static_cast<uint16_t>(number);
}

}  // namespace

bool is_numeric_address(int family, const std::string &text) {
  in6_addr taken = {};
  return inet_pton(family, text.c_str(), &taken) == 1;
}

std::optional<receiver_address> read_receiver_address(const std::string &text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return {};
  receiver_address found = {text.substr(0, colon), port_of(text.substr(colon + 1))};
  std::string &host = found.host;
  const bool in_brackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (in_brackets) host = host.substr(1, host.size() - 2);
  if (found.port == 0 || !is_numeric_address(in_brackets ? AF_INET6 : AF_INET, host)) return {};
  return found;
}

std::string to_string(const receiver_address &address) {
  return (address.is_ipv6() ? "[" + address.host + "]" : address.host) + ":" +
         std::to_string(address.port);
}

}  // namespace lum_linux
