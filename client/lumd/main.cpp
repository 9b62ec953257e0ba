// lumd: the reference driver, in the foreground.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <system_error>

#include "answer.h"
#include "base/output.h"
#include "command_line.h"
#include "confine.h"
#include "description_file.h"
#include "exposure.h"
#include "lum_linux/disks.h"
#include "memory_reserve.h"
#include "node/driver.h"
#include "node/log.h"
#include "open_api.h"
#include "reload_signal.h"
#include "spare_memory.h"
#include "stop_signal.h"
#include "unit_filters.h"
#include "watchdog.h"
#include "wording/numbers.h"

namespace {

using namespace lumd;

// What a signal would end the process for without need: a terminal that goes, until it means that
// the description is to be read again; a pipe that nobody reads; a file that has become too large,
// which the write itself tells of.
void ignore_needless_signals() {
  for (const int number : {SIGHUP, SIGPIPE, SIGXFSZ}) signal(number, SIG_IGN);
}

// What is said to standard error must not end up in a file that came to have its number.
void fill_standard_descriptors() {
  int added = 0;
  do {
    added = ::open("/dev/null", O_RDWR);
  } while (added >= 0 && added <= STDERR_FILENO);
  if (added >= 0) ::close(added);
}

// A request, a module, a trace channel: each may have a descriptor of its own.
void use_all_descriptors() {
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

// Ends the process without running destructors: the library's polling thread goes on to the end.
[[noreturn]] void leave(int code) { _exit(code); }

// What cannot be made is told by whoever needs it.
void make_own_folders(const lum_linux::node_description &node) {
  for (const auto &folder : {node.state_directory, node.trace_directory, node.led_directory}) {
    if (!lum_linux::folder_answers(folder)) say("{}: its disk does not answer", folder.native());
  }
}

void report_ready(const http_server &server, const lum_linux::node_description &node) {
  for (const std::string &lack : server.lacks()) say_at(LOG_WARNING, lack);
  if (const std::string url = server.tcp_url(); !url.empty()) say("read-only API on {}", url);
  if (is_open_to_others(node)) tell_of_unit_filters(node.http_address);
}

int run(const lum_linux::node_description &as_read, const command_line &chosen) {
  const reload_signal reload;  // before any thread is started
  lum_linux::node_description description = as_read;
  if (!chosen.socket.empty()) {
    description.api_socket = std::filesystem::absolute(chosen.socket);
  }
  auto &stop = *new stop_signal;  // its thread goes on to the end
  make_own_folders(description);
  std::string error;
  // It goes on serving until the process ends, whatever is thrown here.
  http_server *const server = open_api(description, error).release();
  if (!server) {
    say("{}", error);
    return exit_failed;
  }
  if (!server->socket().empty()) description.api_socket = server->socket();
  if (const auto why = confine_writes(description); !why.empty()) {
    say("the driver is not confined to its files: {}", why);
  }

  driver *const node = driver::start(description, as_read, chosen.alarm_tests, error);
  if (!node) {
    say("{}", error);
    server->stop();
    leave(exit_failed);
  }
  if (stop.has_come()) {
    server->stop();
    leave(0);
  }
  server->serve([&driver = *node](const http_request &request) {
    renew_memory_reserve();
    const answer_memory taken;
    return answer(driver, request);
  });
  node->events().on_more([server] { server->wake_streams(); });
  report_ready(*server, description);
  node->bring_up();
  reload_signal::listen([node, server, file = std::filesystem::absolute(chosen.config)] {
    renew_memory_reserve();
    reload_description(*node, *server, file);
    node->look_soon();
  });

  watchdog guard(*node, *server);
  stop.wait();
  renew_memory_reserve();
  guard.stop();
  say("stopping");
  server->stop();
  node->stop();
  say("stopped");
  leave(0);
}

}  // namespace

int main(int argc, char **argv) {
  fill_standard_descriptors();
  ignore_needless_signals();
  spare_memory();
  keep_memory_reserve();
  int status = 0;
  try {
    const auto chosen = read_command_line(argc, argv, status);
    if (!chosen) return status;
    const auto description = read_description(chosen->config);
    if (!description) return exit_wrong_description;
    if (chosen->check) {
      lum_client::print(fmt::format("{}: right, {}\n", chosen->config,
                                    lum_wording::counted(description->ports().size(), "port")));
      compare_with_running(*description, chosen->socket);
      return 0;
    }
    umask(S_IRWXG | S_IRWXO);
    use_all_descriptors();
    return run(*description, *chosen);
  } catch (const std::system_error &error) {
    const bool no_thread = error.code() == std::errc::resource_unavailable_try_again;
    say_failed(error.what(), no_thread ? ": the system gives no more threads, see ulimit -u" : "");
    leave(exit_failed);
  } catch (const std::exception &error) {
    say_failed(error.what(), "");
    leave(exit_failed);
  }
}
