#include "exposure.h"

#include <fmt/format.h>

#include "api/own_host.h"
#include "api/peer_user.h"

namespace lumd {

using lum_linux::node_description;

bool is_open_to_others(const node_description &node) {
  return node.http_port && !is_own_host(node.http_address, {}, {});
}

std::shared_ptr<const lum_client::tls_context> tls_of(const node_description &node,
                                                      std::string &error) {
  error.clear();
  if (node.http_certificate.empty()) return nullptr;
  auto made = lum_client::tls_context::of_server(
      {node.http_certificate, node.http_key, node.http_client_ca}, error);
  if (!error.empty()) error += " (http_certificate, http_key, http_client_ca)";
  return made;
}

std::optional<gid_t> group_of(const node_description &node, std::string &error) {
  error.clear();
  if (node.socket_group.empty()) return std::nullopt;
  const auto found = find_group(node.socket_group);
  if (!found) {
    error = fmt::format(
        "'socket_group' is \"{}\", expected a group of /etc/group; groupadd makes "
        "one",
        node.socket_group);
  }
  return found;
}

std::vector<std::string> risks_of(const node_description &node) {
  std::vector<std::string> risks;
  if (is_open_to_others(node) && node.http_certificate.empty()) {
    risks.push_back(
        fmt::format("the API on {} (http_address) is open to others without TLS: whoever is on the "
                    "way reads along, and may answer in the node's place; http_certificate and "
                    "http_key give it TLS, http_client_ca says who may ask",
                    node.http_address));
  }
  std::string ignored;
  if (const auto tls = tls_of(node, ignored); tls && tls->is_over()) {
    risks.push_back(fmt::format("the certificate {} has run out on {}: nobody trusts it any more",
                                node.http_certificate.native(), tls->last_day()));
  }
  return risks;
}

}  // namespace lumd
