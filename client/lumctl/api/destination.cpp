#include "api/destination.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

namespace lumctl {
namespace {

constexpr std::string_view secure_scheme = "https://";
constexpr std::string_view plain_scheme = "http://";

bool is_name(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char letter) {
    return std::isalnum(letter) != 0 || letter == '-' || letter == '.' || letter == '_';
  });
}

bool is_v6(const std::string &text) {
  in6_addr address = {};
  return inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

// Empty, or a colon and a number.
bool take_port(std::string_view text, std::string &port) {
  if (text.empty()) return true;
  unsigned number = 0;
  const char *const end = text.data() + text.size();
  const auto read = std::from_chars(text.data() + 1, end, number);
  if (text[0] != ':' || text.size() < 2 || read.ec != std::errc() || read.ptr != end ||
      number == 0 || number > 65535) {
    return false;
  }
  port = std::to_string(number);
  return true;
}

bool take_authority(node_address &address) {
  const std::string_view text = address.authority;
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos) return false;
    address.host = text.substr(1, end - 1);
    return is_v6(address.host) && take_port(text.substr(end + 1), address.port);
  }
  const std::size_t colon = std::min(text.find(':'), text.size());
  address.host = text.substr(0, colon);
  return is_name(address.host) && take_port(text.substr(colon), address.port);
}

}  // namespace

std::string read_url(const std::string &url, node_address &address) {
  std::string_view rest = url;
  address.tls = rest.starts_with(secure_scheme);
  const std::string_view scheme = address.tls ? secure_scheme : plain_scheme;
  address.port = address.tls ? "443" : "80";
  if (rest.starts_with(scheme)) {
    rest.remove_prefix(scheme.size());
    if (rest.ends_with('/')) rest.remove_suffix(1);
    address.authority = rest;
    if (take_authority(address)) return {};
  }
  return fmt::format(
      "\"{}\" is no address of a node, expected https://NODE:PORT or http://NODE:PORT", url);
}

std::string complaint_of(const destination &driver) {
  node_address address;
  if (!driver.url.empty()) {
    if (std::string wrong = read_url(driver.url, address); !wrong.empty()) return wrong;
  }
  const bool has_files = !driver.ca.empty() || !driver.certificate.empty() || !driver.key.empty();
  if (has_files && !address.tls) return "--ca, --cert and --key go with --url https://NODE:PORT";
  if (!driver.key.empty() && driver.certificate.empty()) return "--key goes with --cert";
  return {};
}

}  // namespace lumctl
