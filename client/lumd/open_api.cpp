#include "open_api.h"

#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "exposure.h"
#include "lum_linux/disks.h"
#include "node/log.h"

namespace lumd {
namespace {

namespace fs = std::filesystem;

constexpr const char *socket_name = "lumd.sock";

// Where lumctl looks, and what a service manager says instead: of several folders the first.
fs::path runtime_socket() {
  const char *const given = std::getenv("RUNTIME_DIRECTORY");
  std::string_view folder = given == nullptr ? "" : given;
  folder = folder.substr(0, folder.find(':'));
  return fs::path(folder.empty() ? "/run/lumd" : folder) / socket_name;
}

std::unique_ptr<http_server> open_at(const fs::path &socket, http_options options,
                                     http_refusal &refusal) {
  options.socket = socket;
  std::error_code refused;
  if (!socket.empty() && !lum_linux::folder_answers(socket.parent_path())) {
    refusal = {socket.parent_path().native() + ": its disk does not answer", true};
    return nullptr;
  }
  if (!socket.empty()) fs::create_directories(socket.parent_path(), refused);
  if (refused) {
    refusal = {socket.parent_path().native() + ": " + refused.message(), true};
    return nullptr;
  }
  return http_server::open(options, refusal);
}

// `why` the socket in the state directory cannot be had.
std::unique_ptr<http_server> open_elsewhere(const http_options &options, const std::string &why,
                                            std::string &error) {
  const fs::path socket = runtime_socket();
  http_refusal refusal;
  if (auto server = open_at(socket, options, refusal)) {
    say("{}; the API is on {} instead", why, socket.native());
    return server;
  }
  if (options.tcp_port && refusal.is_of_folder) {
    say("{}; {}; the API is on its TCP port alone, where nothing can be changed", why,
        refusal.text);
    auto server = open_at({}, options, refusal);
    error = refusal.text;
    return server;
  }
  error = why + "; " + refusal.text + "; choose another place with api_socket or --socket";
  return nullptr;
}

}  // namespace

std::unique_ptr<http_server> open_api(const lum_linux::node_description &node, std::string &error) {
  http_options options;
  options.tcp_port = node.http_port;
  options.tcp_address = node.http_address;
  options.names = node.http_names;
  options.group = group_of(node, error);
  if (error.empty()) options.tls = tls_of(node, error);
  if (!error.empty()) return nullptr;
  http_refusal refusal;
  auto server = open_at(node.api_socket, options, refusal);
  if (server) return server;
  const bool is_chosen = node.api_socket != node.state_directory / socket_name;
  if (!is_chosen && refusal.is_of_folder) return open_elsewhere(options, refusal.text, error);
  error = refusal.text;
  return nullptr;
}

}  // namespace lumd
