#include "driver_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

namespace stress {
namespace {

rlimit file_limit(uint64_t max_file_size) {
  const rlim_t bytes = max_file_size == 0 ? RLIM_INFINITY : max_file_size;
  return {bytes, RLIM_INFINITY};
}

// Far above the ends used in the driver, so that moving one there cannot close another.
int high_fd(int fd) {
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 100);
  close(fd);
  return moved;
}

}  // namespace

driver_process::driver_process(const std::filesystem::path &folder, uint64_t seed, driver_task task,
                               uint64_t max_file_size) {
  int record_pipe[2], go_pipe[2];
  if (pipe2(record_pipe, O_CLOEXEC) != 0 || pipe2(go_pipe, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  const int record_end = high_fd(record_pipe[1]);
  const int go_end = high_fd(go_pipe[0]);
  const std::string seed_text = std::to_string(seed);
  const char *task_text = task == driver_task::storm ? "storm" : "report";
  const rlimit limit = file_limit(max_file_size);
  pid_ = fork();
  if (pid_ == 0) {
    dup2(record_end, record_fd);
    dup2(go_end, go_fd);
    setrlimit(RLIMIT_FSIZE, &limit);
    signal(SIGXFSZ, SIG_IGN);
    execl(CRASH_WORKER, CRASH_WORKER, folder.c_str(), seed_text.c_str(), task_text, nullptr);
    _exit(127);
  }
  close(record_end);
  close(go_end);
  records_ = record_pipe[0];
  go_ = go_pipe[1];
  if (pid_ < 0) throw std::runtime_error("no process");
}

driver_process::~driver_process() {
  if (pid_ > 0) kill_now();
  close(records_);
  close(go_);
}

std::optional<crash_record> driver_process::next(std::chrono::microseconds bound) {
  pollfd ready = {records_, POLLIN, 0};
  const timespec time = {bound.count() / 1'000'000, bound.count() % 1'000'000 * 1000};
  if (ended_ || ppoll(&ready, 1, &time, nullptr) <= 0) return std::nullopt;
  crash_record record;
  if (read(records_, &record, sizeof record) == sizeof record) return record;
  ended_ = true;
  return std::nullopt;
}

void driver_process::go() {
  if (write(go_, "g", 1) != 1) throw std::runtime_error("the driver does not listen");
}

void driver_process::limit_files(uint64_t max_file_size) {
  const rlimit limit = file_limit(max_file_size);
  if (prlimit(pid_, RLIMIT_FSIZE, &limit, nullptr) != 0) throw std::runtime_error("no limit");
}

bool driver_process::kill_now() {
  kill(pid_, SIGKILL);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

int driver_process::wait() {
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace stress
