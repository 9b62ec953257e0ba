// Whether a thread of this process sleeps: how a test knows that it has come to a lock and no
// further.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>

namespace support {

// The state letter stands behind the name, which is in parentheses.
inline bool is_asleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t name_end = line.rfind(") ");
  return name_end != std::string::npos && line[name_end + 2] == 'S';
}

// A thread that does its work and is expected to get stuck in it for a while.
class sleeper {
 public:
  template <typename Work>
  explicit sleeper(Work work)
      : thread_([this, work] {
          id_ = static_cast<pid_t>(syscall(SYS_gettid));
          work();
          ended_ = true;
        }) {}
  ~sleeper() { join(); }
  // Until the thread sleeps.
  void wait_asleep() const {
    while (id_ == 0 || (!ended_ && !is_asleep(id_))) std::this_thread::yield();
  }
  bool ended() const { return ended_; }
  void join() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  std::atomic<pid_t> id_{0};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

}  // namespace support
