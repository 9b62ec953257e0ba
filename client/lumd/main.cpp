// lumd: the reference driver, in the foreground.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <thread>

#include "answer.h"
#include "command_line.h"
#include "lum_linux/image.h"
#include "node/driver.h"
#include "node/log.h"

namespace {

using namespace lumd;

constexpr std::chrono::milliseconds stop_bound(4500);

bool is_good(const lum_linux::description_result &result) {
  for (const auto &problem : result.problems) {
    fmt::print(stderr, "{}\n", to_string(problem));
  }
  return result.node.has_value();
}

// The descriptions of simulated modules belong to the node's.
bool modules_are_good(const lum_linux::node_description &node) {
  bool good = true;
  for (const auto *port : node.ports()) {
    std::error_code error;
    if (port->module.backend != lum_linux::module_backend::simulated ||
        !std::filesystem::exists(port->module.file, error)) {
      continue;
    }
    for (const auto &problem : lum_linux::read_module_image(port->module.file).problems) {
      fmt::print(stderr, "{}\n", to_string(problem));
      good = false;
    }
  }
  return good;
}

// What is right as a description and yet most likely not what was meant.
void warn(const lum_linux::node_description &node) {
  if (node.rack == 0) return;
  fmt::print(stderr,
             "{}: warning: 'rack' is {}, and the library reaches modules in rack 0 only: no module "
             "of this node will be read or set\n",
             node.source.native(), node.rack);
}

sigset_t stop_signals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  return set;
}

// Every thread inherits the blocked signals, so that only main takes them.
void block_stop_signals() {
  const sigset_t set = stop_signals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);  // a write that is too long for the file's limit fails like any other
}

void wait_for_stop_signal() {
  const sigset_t set = stop_signals();
  int number = 0;
  while (sigwait(&set, &number) != 0) {
  }
  say("stopping");
}

// Whatever hangs, the process is gone soon: a driver that does not stop keeps the node from being
// started again.
void leave_at_the_latest() {
  std::thread([] {
    std::this_thread::sleep_for(stop_bound);
    say("something does not end; leaving it behind");
    _exit(exit_failed);
  }).detach();
}

// Ends the process without running destructors: the library's polling thread goes on to the end.
[[noreturn]] void leave(int code) {
  std::fflush(nullptr);
  _exit(code);
}

bool make_folder(const std::filesystem::path &folder) {
  std::error_code refused;
  std::filesystem::create_directories(folder, refused);
  if (refused) say("{}: {}", folder.native(), refused.message());
  return !refused;
}

void report_ready(const driver &node, const http_server &server, std::size_t ports) {
  say("node \"{}\": {} ports, {} start", node.node().name, ports,
      node.restarted() ? "warm" : "cold");
  if (server.tcp_port() != 0) say("read-only API on http://127.0.0.1:{}/", server.tcp_port());
}

int run(lum_linux::node_description description, const command_line &chosen) {
  if (!chosen.socket.empty()) {
    description.api_socket = std::filesystem::absolute(chosen.socket);
  }
  block_stop_signals();

  // The socket comes before the platform, which makes the other folders.
  if (!make_folder(description.api_socket.parent_path())) return exit_failed;
  std::string error;
  http_options http;
  http.socket = description.api_socket;
  http.tcp_port = description.http_port;
  const auto server = http_server::open(http, error);
  if (!server) {
    say("{}", error);
    return exit_failed;
  }
  const auto node = driver::start(description, chosen.alarm_tests, error);
  if (!node) {
    say("{}", error);
    server->stop();
    leave(exit_failed);
  }
  server->serve([&driver = *node](const http_request &request) { return answer(driver, request); });
  report_ready(*node, *server, description.ports().size());
  node->bring_up();

  wait_for_stop_signal();
  leave_at_the_latest();
  server->stop();
  node->stop();
  say("stopped");
  leave(0);
}

}  // namespace

int main(int argc, char **argv) {
  int status = 0;
  const auto chosen = read_command_line(argc, argv, status);
  if (!chosen) return status;
  const auto result = lum_linux::read_node_description(chosen->config);
  if (!is_good(result) || !modules_are_good(*result.node)) return exit_wrong_description;
  warn(*result.node);
  if (chosen->check) {
    fmt::print("{}: right, {} ports\n", chosen->config, result.node->ports().size());
    return 0;
  }
  try {
    return run(*result.node, *chosen);
  } catch (const std::exception &error) {
    say("{}", error.what());
    leave(exit_failed);
  }
}
