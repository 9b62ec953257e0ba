// What stays of traces in their rings, and what becomes of rings that are left or damaged.
#include "lum_linux/trace_rings.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "ctrace.h"
#include "lum_linux/traces.h"
#include "services/log_capture.h"
#include "test_folder.h"

namespace {

namespace fs = std::filesystem;
using lum_linux::read_trace_ring;

constexpr const char *rings_key = "rings_dir";

class trace_rings : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(lum_linux::traces_set_directory(rings_key, folder / "traces"), 0u);
    ctrace_set_process_name("tester");
  }
  static ctrace_handle open(uint32_t size = 0x80000) {
    ctrace_handle handle = 0;
    EXPECT_EQ(ctrace_open_internal(&handle, "lum_info", size, 278, rings_key, "0123", 0), 0u);
    return handle;
  }
  // A process that traces so many lines, the text files of which are stopped, and is killed.
  void trace_and_be_killed(int lines) {
    const pid_t child = fork();
    if (child == 0) {
      const ctrace_handle handle = open();
      for (int i = 0; i < lines; ++i) {
        ctrace_internal(handle, 18, 4, 1, "sdss", "[%s][tid:%d]%s:%s\n", "lum_api", i, "LUM_INFO",
                        "last words");
      }
      kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
  }
  std::vector<std::string> lines() const {
    std::vector<std::string> all;
    std::istringstream in(contents(folder / "traces/lum_info.log"));
    for (std::string line; std::getline(in, line);) all.push_back(line);
    return all;
  }

  test_folder folder;
  fs::path file = folder / "traces/lum_info.ring";
};

}  // namespace

TEST_F(trace_rings, hold_what_a_killed_process_traced_last) {
  trace_and_be_killed(300);
  const auto ring = read_trace_ring(file);
  EXPECT_EQ(ring.problem, "");
  EXPECT_EQ(ring.channel, "lum_info");
  EXPECT_EQ(ring.process, "tester");
  EXPECT_EQ(ring.digest, "0123");
  EXPECT_EQ(ring.points, 278u);
  ASSERT_EQ(ring.records.size(), 300u);
  EXPECT_TRUE(ring.records.back().line.ends_with(
      "Z [tester] lum_info #18 [lum_api][tid:299]LUM_INFO:last words"))
      << ring.records.back().line;
  EXPECT_NE(ring.records.back().thread, 0u);
}

TEST_F(trace_rings, of_a_killed_process_are_in_the_text_files_once_they_are_opened_again) {
  trace_and_be_killed(300);
  const auto ring = read_trace_ring(file);
  ASSERT_EQ(ring.records.size(), 300u);
  ctrace_close(open());
  const auto written = lines();
  ASSERT_EQ(written.size(), 300u);
  for (size_t i = 0; i < written.size(); ++i) EXPECT_EQ(written[i], ring.records[i].line);
  ctrace_close(open());
  EXPECT_EQ(lines().size(), 300u) << "each once";
}

// Where the process that writes them is stopped in the middle, by a file that may not grow.
TEST_F(trace_rings, of_a_killed_process_are_in_the_text_files_once_though_writing_them_was_cut) {
  constexpr int many = 300;
  trace_and_be_killed(many);
  log_capture log;
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  for (const rlim_t room : {rlim_t{4000}, rlim_t{9000}}) {
    const auto no_signal = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit little = {room, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
    ctrace_close(open());
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, no_signal);
    const size_t written = lines().size();
    EXPECT_GT(written, 10u);
    EXPECT_LT(written, many * 1u);
  }
  ctrace_close(open());
  const std::string all = contents(folder / "traces/lum_info.log");
  for (int i = 0; i < many; ++i) {
    const std::string line = "[tid:" + std::to_string(i) + "]LUM_INFO:last words\n";
    const size_t at = all.find(line);
    ASSERT_NE(at, std::string::npos) << line;
    EXPECT_EQ(all.find(line, at + 1), std::string::npos) << "twice: " << line;
  }
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
TEST_F(trace_rings, say_what_printf_says) {
  const ctrace_handle handle = open();
  struct text_and_more {
    char text[3];
    char more;
  } const unended = {{'a', 'b', 'c'}, 'd'};
  constexpr auto least = std::numeric_limits<int>::min();
  constexpr auto most = std::numeric_limits<uint64_t>::max();
  std::vector<std::string> wanted;
  const auto both = [&](uint32_t count, const char *signature, const char *format, auto... given) {
    std::array<char, 4096> text;
    snprintf(text.data(), text.size(), format, given...);
    wanted.emplace_back(text.data());
    EXPECT_EQ(ctrace_internal(handle, 1, count, 1, signature, format, given...), 0u);
  };
  both(0, "", "100%% plain");
  both(3, "ddd", "%d|%5u|%-8x|", least, 7u, 0xABCu);
  both(3, "DDD", "%lu|%lld|%#lx", most, -5LL, 255ul);
  both(2, "dd", "%hhx %hu", 0x1234, 0x12345);
  both(2, "sD", "%s %p", "", static_cast<void *>(wanted.data()));
  both(1, "s", "%.3s", unended.text);
  both(2, "ss", "%10s|%-10s|", "right", "left");
  both(1, "s", "%s", static_cast<const char *>(nullptr));
  both(2, "dd", "%*d", 6, 42);  // not of the record's kinds
  both(2, "d", "%d %d", 1, 2);  // a signature that says too little
  both(1, nullptr, "%d", 3);    // and none
  ctrace_close(handle);
  const auto written = lines();
  ASSERT_EQ(written.size(), wanted.size());
  for (size_t i = 0; i < wanted.size(); ++i) {
    EXPECT_TRUE(written[i].ends_with(" #1 " + wanted[i])) << written[i] << "\n" << wanted[i];
  }
}
#pragma GCC diagnostic pop

TEST_F(trace_rings, that_are_overrun_say_in_the_text_file_how_many_lines_it_misses) {
  const ctrace_handle handle = open(0x4000000);
  constexpr uint64_t many = 200000;
  for (uint64_t i = 0; i < many; ++i) ctrace_internal(handle, 1, 1, 1, "D", "%lu", i);
  ctrace_dump(handle);
  const auto status = lum_linux::traces_status();
  ASSERT_EQ(status.size(), 1u);
  EXPECT_GT(status[0].failures, 0u);
  EXPECT_EQ(status[0].lines + status[0].failures, many);
  ctrace_close(handle);
  uint64_t next = 0;
  for (const std::string &line : lines()) {
    const std::string missing = "#0 [traces] ";
    const size_t at = line.find(missing);
    if (at != std::string::npos) {
      next += std::stoull(line.substr(at + missing.size()));
    } else {
      ASSERT_TRUE(line.ends_with(" #1 " + std::to_string(next))) << line << ", not " << next;
      ++next;
    }
  }
  EXPECT_EQ(next, many);
}

// Whatever the file holds, a reader comes to an end and the next process traces.
TEST_F(trace_rings, may_hold_anything) {
  trace_and_be_killed(2000);
  const std::string whole = contents(file);
  std::mt19937 random(4711);
  for (int round = 0; round < 150; ++round) {
    std::string damaged = whole;
    const bool is_header = round % 3 == 0;
    const size_t range = is_header ? 600 : damaged.size();
    for (int i = 0; i < (round % 7 + 1) * 40; ++i) {
      damaged[random() % range] = static_cast<char>(random());
    }
    if (is_header && round % 2 == 0) damaged.replace(0, 16, whole, 0, 16);
    if (round % 5 == 0) damaged.resize(random() % damaged.size());
    std::ofstream(file, std::ios::binary | std::ios::trunc) << damaged;
    const auto ring = read_trace_ring(file);
    EXPECT_LE(ring.records.size(), 2000u);
    if (round % 10 != 0) continue;
    const ctrace_handle handle = open();
    EXPECT_EQ(ctrace_internal(handle, 1, 0, 1, "", "after it"), 0u);
    ctrace_close(handle);
    EXPECT_TRUE(lines().back().ends_with(" #1 after it"));
  }
}

// As somebody does who wants his disk back, with the channel open.
TEST_F(trace_rings, whose_file_is_cut_short_cost_their_lines_and_nothing_else) {
  const ctrace_handle handle = open();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(ctrace_internal(handle, 1, 1, 1, "d", "before %d", i), 0u);
    ctrace_dump(handle);
    fs::resize_file(file, i == 1 ? 4096 : 0);
    for (int line = 0; line < 50; ++line) {
      EXPECT_EQ(ctrace_internal(handle, 1, 1, 1, "d", "with nothing there %d", line), 0u);
    }
    while (lines().back().find("cut the ring's file short") == std::string::npos) {
      EXPECT_EQ(ctrace_internal(handle, 1, 0, 1, "", "more"), 0u);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      if (lines().back().ends_with(" more")) break;
    }
    EXPECT_EQ(ctrace_internal(handle, 1, 1, 1, "d", "after %d", i), 0u);
    ctrace_dump(handle);
    const auto ring = read_trace_ring(file);
    EXPECT_EQ(ring.problem, "");
    ASSERT_FALSE(ring.records.empty());
    EXPECT_TRUE(ring.records.back().line.ends_with("#1 after " + std::to_string(i)));
  }
  ctrace_close(handle);
  const std::string written = contents(folder / "traces/lum_info.log");
  for (const char *kept : {"#1 before 0", "#1 after 0", "#1 before 2", "#1 after 2"}) {
    EXPECT_NE(written.find(kept), std::string::npos) << kept;
  }
}

TEST_F(trace_rings, that_cannot_be_had_are_in_memory_and_that_is_said) {
  fs::create_directories(file);
  log_capture log;
  const ctrace_handle handle = open();
  EXPECT_EQ(ctrace_internal(handle, 1, 0, 1, "", "a line"), 0u);
  ctrace_close(handle);
  EXPECT_EQ(lines().size(), 1u);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_NE(log.lines()[0].find("in memory alone"), std::string::npos) << log.lines()[0];
  EXPECT_NE(read_trace_ring(file).problem, "");
  EXPECT_NE(read_trace_ring(folder / "nothing").problem, "");
}
