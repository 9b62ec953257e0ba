// Runs the checks, each in a process of its own, so that one that crashes or hangs is named and the
// others go on. The process of a check is this program again, told by the environment what to do.
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>

#include "check.h"

namespace conformance {
namespace {

using namespace std::chrono_literals;

constexpr char told_check[] = "LUM_CONFORMANCE_CHECK";    // its name, behind a '+' after the kill
constexpr char told_pipe[] = "LUM_CONFORMANCE_PIPE";      // where its failure is told
constexpr int held = 0, broken = 1, does_not_apply = 77;  // how the process of a check ends

const lum_conformance_platform *under_test = nullptr;
lum_infra_params started_with = {};

std::vector<check> all_checks() {
  std::vector<check> all;
  for (const auto group : {text_checks, trace_checks, tree_checks, pulse_checks, checkpoint_checks,
                           store_checks, module_checks, led_checks, reply_checks, node_checks}) {
    const std::vector<check> checks = group();
    all.insert(all.end(), checks.begin(), checks.end());
  }
  return all;
}

// ---- The process of a check ----

int outcome(void (*run)(), std::string &told) {
  try {
    run();
    return held;
  } catch (const failure &f) {
    told = f.seen;
    return broken;
  } catch (const no_case &n) {
    told = n.reason;
    return does_not_apply;
  }
}

[[noreturn]] void run_here(std::string name) {
  const char *pipe_number = std::getenv(told_pipe);
  const int pipe = pipe_number == nullptr ? STDERR_FILENO : std::atoi(pipe_number);
  const bool again = name.starts_with('+');
  if (again) name.erase(0, 1);
  for (const check &one : all_checks()) {
    if (one.name != name) continue;
    std::string told;
    const int end = outcome(again ? one.after_kill : one.run, told);
    if (write(pipe, told.data(), told.size()) < 0) _exit(broken);
    if (end == held && !again && one.after_kill != nullptr) std::raise(SIGKILL);
    std::fflush(nullptr);
    _exit(end);  // threads of the platform and of the library go on
  }
  _exit(2);
}

// ---- The test's own process ----

std::vector<std::string> own_arguments() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  std::vector<std::string> arguments;
  for (std::string one; std::getline(file, one, '\0');) arguments.push_back(one);
  return arguments;
}

struct verdict {
  int end = broken;
  std::string told;
};

[[noreturn]] void become(const std::string &name, int pipe) {
  std::vector<std::string> arguments = own_arguments();
  std::vector<char *> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string &one : arguments) pointers.push_back(one.data());
  pointers.push_back(nullptr);
  setenv(told_check, name.c_str(), 1);
  setenv(told_pipe, std::to_string(pipe).c_str(), 1);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  execv("/proc/self/exe", pointers.data());
  _exit(2);
}

// All that comes before the other end is closed; false when it is not closed in time.
bool read_all(int pipe, std::string &text) {
  const auto end = std::chrono::steady_clock::now() + 3 * patience() + 10s;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    pollfd waited = {pipe, POLLIN, 0};
    if (left <= 0ms) return false;
    if (poll(&waited, 1, static_cast<int>(left.count())) <= 0) continue;
    char part[512];
    const ssize_t length = read(pipe, part, sizeof part);
    if (length <= 0) return true;
    text.append(part, static_cast<size_t>(length));
  }
}

verdict judge(int status, const std::string &told, bool killed_itself) {
  if (WIFEXITED(status)) {
    const int end = WEXITSTATUS(status);
    if (end == held && killed_itself) return {broken, "the process was not killed"};
    if (end == held || end == does_not_apply) return {end, told};
    return {broken, told.empty() ? "the process ended with " + std::to_string(end) : told};
  }
  if (killed_itself && WTERMSIG(status) == SIGKILL) return {held, told};
  return {broken, std::string("the process was ended: ") + strsignal(WTERMSIG(status))};
}

verdict run_apart(const std::string &name, bool kills_itself) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {broken, std::strerror(errno)};
  const pid_t child = fork();
  if (child < 0) return {broken, std::strerror(errno)};
  if (child == 0) {
    fcntl(ends[1], F_SETFD, 0);
    become(name, ends[1]);
  }
  close(ends[1]);
  verdict seen;
  const bool in_time = read_all(ends[0], seen.told);
  if (!in_time) kill(child, SIGKILL);
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!in_time) return {broken, "it did not come to an end"};
  return judge(status, seen.told, kills_itself);
}

verdict run_check(const check &one) {
  verdict first = run_apart(one.name, one.after_kill != nullptr);
  if (first.end != held || one.after_kill == nullptr) return first;
  return run_apart("+" + std::string(one.name), false);
}

// ---- What is asked for, and what is printed ----

bool is_asked_for(const check &one, const std::string &name) {
  return name == one.name || std::string(one.name).starts_with(name + ".");
}

std::vector<check> chosen(int count, const char *const *names) {
  std::vector<check> all = all_checks();
  if (count == 0) return all;
  std::vector<check> found;
  for (int i = 0; i < count; ++i) {
    const size_t before = found.size();
    for (const check &one : all) {
      if (is_asked_for(one, names[i])) found.push_back(one);
    }
    if (found.size() > before) continue;
    std::fprintf(stderr, "no check is called %s; --list names all\n", names[i]);
    return {};
  }
  return found;
}

int report(const std::vector<check> &checks) {
  size_t failed = 0, skipped = 0, number = 0;
  std::printf("1..%zu\n", checks.size());
  for (const check &one : checks) {
    const verdict seen = run_check(one);
    ++number;
    if (seen.end == held) {
      std::printf("ok %zu - %s\n", number, one.name);
    } else if (seen.end == does_not_apply) {
      ++skipped;
      std::printf("ok %zu - %s # SKIP %s\n", number, one.name, seen.told.c_str());
    } else {
      ++failed;
      std::printf("not ok %zu - %s\n# %s\n", number, one.name, seen.told.c_str());
    }
    std::fflush(stdout);
  }
  std::printf("# %zu held, %zu did not, %zu do not apply\n", number - failed - skipped, failed,
              skipped);
  return failed == 0 ? 0 : 1;
}

}  // namespace

void require(bool condition, const char *seen, ...) {
  if (condition) return;
  char text[400];
  std::va_list arguments;
  va_start(arguments, seen);
  std::vsnprintf(text, sizeof text, seen, arguments);
  va_end(arguments);
  throw failure{text};
}

const lum_conformance_platform &platform() { return *under_test; }

const lum_infra_params &start_platform() {
  const int rc = platform().start(&started_with);
  require(rc == 0, "the platform does not start: %d", rc);
  require(started_with.platform_cbs != nullptr, "the platform gives no table of callbacks");
  require(started_with.evm != 0, "the platform gives no event manager");
  return started_with;
}

const lum_platform_cbs &callbacks() { return *started_with.platform_cbs; }

cage port_cage() {
  const uint32_t rsip = platform().port.rsip;
  return {rsip >> 16 & 0xFF, rsip >> 8 & 0xFF, rsip & 0xFF};
}

std::chrono::milliseconds patience() {
  const char *text = std::getenv("LUM_CONFORMANCE_PATIENCE");
  const int seconds = text == nullptr ? 0 : std::atoi(text);
  return std::chrono::seconds(seconds > 0 ? seconds : 20);
}

bool comes(const std::function<bool()> &condition) {
  const auto end = std::chrono::steady_clock::now() + patience();
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(5ms);
  }
  return true;
}

}  // namespace conformance

int lum_conformance_main(int count, const char *const *names,
                         const lum_conformance_platform *platform) {
  using namespace conformance;
  if (platform == nullptr || platform->start == nullptr || count < 0 ||
      (count > 0 && names == nullptr) || platform->port.rsip >> 24 != 0 ||
      platform->port.port_handle == 0) {
    std::fprintf(stderr,
                 "the platform has to say how it is started, and a port of rack 0 with a "
                 "handle that is not 0\n");
    return 2;
  }
  under_test = platform;
  if (const char *name = std::getenv(told_check)) run_here(name);
  if (count == 1 && std::string(names[0]) == "--list") {
    for (const check &one : all_checks()) std::puts(one.name);
    return 0;
  }
  const std::vector<check> checks = chosen(count, names);
  return checks.empty() ? 2 : report(checks);
}
