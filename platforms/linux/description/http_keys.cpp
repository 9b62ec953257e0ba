#include "description/http_keys.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <string_view>

#include "description/receiver_address.h"

namespace lum_linux {
namespace {

namespace fs = std::filesystem;

constexpr size_t max_host_name_bytes = 253;
constexpr size_t max_address_bytes = 63;
constexpr size_t max_http_path_bytes = 1024;

using found_text = std::optional<located<std::string>>;

// What one key is nothing without.
void want_beside(const toml_table &table, std::string_view key, const found_text &found,
                 std::string_view other, problem_list &problems) {
  if (!found || !table.has(key) || table.has(other)) return;
  problems.add(found->line, fmt::format("there is '{}' without '{}', expected both", key, other));
}

void read_address(toml_table &table, problem_list &problems, node_description &node) {
  const found_text found = table.text("http_address", max_address_bytes, node.http_address);
  want_beside(table, "http_address", found, "http_port", problems);
  if (!found) return;
  node.http_address = found->value;
  if (is_numeric_address(AF_INET, found->value) || is_numeric_address(AF_INET6, found->value))
    return;
  problems.add(found->line,
               fmt::format("'http_address' is \"{}\", expected an address of this machine such as "
                           "\"192.0.2.7\" or \"2001:db8::7\", or \"0.0.0.0\" or \"::\" for all",
                           found->value));
}

// Of TLS: a file, which is nothing without the port and what `other` names.
fs::path read_tls_file(toml_table &table, const char *key, const char *other,
                       const fs::path &folder, problem_list &problems) {
  const found_text found = table.text(key, max_http_path_bytes, "");
  want_beside(table, key, found, "http_port", problems);
  want_beside(table, key, found, other, problems);
  if (!found || found->value.empty()) return {};
  return (folder / found->value).lexically_normal();
}

}  // namespace

void read_http_keys(toml_table &table, const fs::path &folder, problem_list &problems,
                    node_description &node) {
  const bool serves_http = table.has("http_port");
  const auto port = table.integer("http_port", 0, 65535, 0);
  if (serves_http && port) node.http_port = static_cast<uint16_t>(port->value);
  for (std::string &name : table.texts("http_names", max_host_name_bytes)) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char letter) { return std::tolower(letter); });
    node.http_names.push_back(std::move(name));
  }
  read_address(table, problems, node);
  const auto file = [&](const char *key, const char *other) {
    return read_tls_file(table, key, other, folder, problems);
  };
  node.http_certificate = file("http_certificate", "http_key");
  node.http_key = file("http_key", "http_certificate");
  node.http_client_ca = file("http_client_ca", "http_certificate");
}

}  // namespace lum_linux
