// Trace channels on a disk that does not answer: their files are pipes that are full.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ctrace.h"
#include "lum_linux/traces.h"
#include "test_folder.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

constexpr const char *hanging_key = "hanging_dir";

// A pipe that is full.
int full_pipe() {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) std::abort();
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  const std::string much(4096, 'x');
  while (write(ends[1], much.data(), much.size()) > 0) {
  }
  fcntl(ends[1], F_SETFL, 0);
  return ends[1];
}

// From here on nothing that is written to the file comes back.
void hang(const fs::path &file) {
  static const int pipe = full_pipe();
  for (const auto &descriptor : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (fs::read_symlink(descriptor, gone) != file) continue;
    dup2(pipe, std::stoi(descriptor.path().filename()));
  }
}

ctrace_handle open_hanging(const fs::path &folder, const std::string &name) {
  ctrace_handle handle = 0;
  if (ctrace_open_internal(&handle, name.c_str(), 0, 278, hanging_key, "0123", 0) != 0) {
    std::abort();
  }
  hang(folder / (name + ".log"));
  ctrace_internal(handle, 1, 0, 1, "", "a line");
  return handle;
}

template <typename Work>
steady_clock::duration time_of(Work work) {
  const auto begun = steady_clock::now();
  work();
  return steady_clock::now() - begun;
}

// Ends the process, which the disk keeps from ending its channels.
[[noreturn]] void flush_all(const fs::path &folder) {
  lum_linux::traces_set_directory(hanging_key, folder);
  const ctrace_handle first = open_hanging(folder, "channel0");
  for (int i = 1; i < 6; ++i) open_hanging(folder, "channel" + std::to_string(i));
  const auto one = time_of([&] { ctrace_dump(first); });
  const auto all = time_of([] { lum_linux::traces_flush(); });
  uint64_t lines = 0;
  for (const auto &status : lum_linux::traces_status()) lines += status.lines;
  std::fprintf(stderr, "%s, %llu lines written\n", all < 2 * one ? "once" : "channel by channel",
               static_cast<unsigned long long>(lines));
  _exit(0);
}

}  // namespace

// In a process of its own: afterwards no disk is waited for in it for some seconds.
TEST(traces_on_a_hanging_disk, are_waited_for_once_and_not_channel_by_channel) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const test_folder folder;
  EXPECT_EXIT(flush_all(folder / "traces"), testing::ExitedWithCode(0), "once, 0 lines written");
}
