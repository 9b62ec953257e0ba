#include "api/own_host.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>

namespace lumd {
namespace {

// The host, without its port and brackets, in small letters.
std::string host_in(const std::string &field) {
  std::string host = field.starts_with('[') ? field.substr(1, field.find(']') - 1)
                                            : field.substr(0, field.find(':'));
  std::transform(host.begin(), host.end(), host.begin(),
                 [](unsigned char letter) { return std::tolower(letter); });
  return host;
}

bool is_loopback(const std::string &host) {
  in_addr v4 = {};
  if (inet_pton(AF_INET, host.c_str(), &v4) == 1) return ntohl(v4.s_addr) >> 24 == 127;
  in6_addr v6 = {};
  return inet_pton(AF_INET6, host.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
}

}  // namespace

bool is_own_host(const std::string &field, const std::vector<std::string> &names) {
  if (field.empty()) return true;
  const std::string host = host_in(field);
  return host == "localhost" || is_loopback(host) ||
         std::find(names.begin(), names.end(), host) != names.end();
}

}  // namespace lumd
