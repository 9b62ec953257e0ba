// A port's mutex and those who wait for it when a deletion keeps it.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <string>
#include <thread>

#include "base/locks.h"
#include "controllers.h"

using namespace support;

namespace {

// The state letter stands behind the name, which is in parentheses.
bool is_asleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t name_end = line.rfind(") ");
  return name_end != std::string::npos && line[name_end + 2] == 'S';
}

TEST_F(created_ports, thread_asleep_on_a_ports_mutex_comes_back_with_125_when_it_is_kept) {
  lum_port_data &port = data_at(first);
  lum::port_lock mine(port);
  ASSERT_EQ(mine.try_take(), 0);
  std::atomic<pid_t> waiting{0};
  int error = 0;
  std::thread waiter([&] {
    waiting = static_cast<pid_t>(syscall(SYS_gettid));
    error = lum::port_hold(port, {"waiter", 1}, lum::after_failure::leave).error();
  });
  while (waiting == 0 || !is_asleep(waiting)) std::this_thread::yield();
  mine.keep();
  waiter.join();
  EXPECT_EQ(error, ECANCELED);
  EXPECT_EQ(pthread_mutex_trylock(&port.port_mutex), 0) << "the waiter let go of the mutex itself";
  EXPECT_EQ(pthread_mutex_unlock(&port.port_mutex), 0);
  EXPECT_EQ(mine.release(), 0) << "the keeper gives it back";
  EXPECT_EQ(mine.try_take(), 0);
  EXPECT_EQ(mine.release(), 0);
}

}  // namespace
