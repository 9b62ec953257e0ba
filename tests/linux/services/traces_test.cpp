#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <regex>
#include <thread>
#include <vector>

#include "ctrace.h"
#include "services/log_capture.h"
#include "test_folder.h"

namespace {

namespace fs = std::filesystem;
using lum_linux::traces_enable;
using lum_linux::traces_set_directory;
using lum_linux::traces_status;
using lum_linux::traces_tend;

constexpr const char *key = "liblum_ctrace_dir";
constexpr const char *digest = "0123456789abcdef0123456789abcdef";

std::vector<std::string> lines_of(const fs::path &file) {
  lum_linux::traces_flush();
  std::vector<std::string> lines;
  std::istringstream in(contents(file));
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

class traces : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(traces_set_directory(key, folder / "traces"), 0u);
    ctrace_set_process_name("tester");
  }
  void TearDown() override {
    for (const ctrace_handle handle : opened) ctrace_close(handle);
  }
  ctrace_handle open(const char *name, uint32_t size = 0x80000) {
    ctrace_handle handle = 0;
    EXPECT_EQ(ctrace_open_internal(&handle, name, size, 278, key, digest, 0), 0u);
    EXPECT_NE(handle, 0u);
    opened.push_back(handle);
    return handle;
  }
  fs::path file(const std::string &name) const { return folder / ("traces/" + name); }

  test_folder folder;
  std::vector<ctrace_handle> opened;
};

}  // namespace

TEST_F(traces, keep_time_process_channel_point_tag_and_text) {
  const ctrace_handle handle = open("lum_info");
  EXPECT_EQ(ctrace_internal(handle, 18, 4, 1, "sdsd", "[%s][tid:%d]%s:LUM_API: value %d\n",
                            "lum_api", 4711, "LUM_INFO", 7),
            0u);
  const auto lines = lines_of(file("lum_info.log"));
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(std::regex_match(
      lines[0], std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z \[tester\] lum_info #18 )"
                           R"(\[lum_api\]\[tid:4711\]LUM_INFO:LUM_API: value 7)")))
      << lines[0];
}

TEST_F(traces, a_line_is_in_the_file_when_its_channel_was_dumped) {
  const ctrace_handle handle = open("lum_error");
  ctrace_internal(handle, 1, 0, 1, "", "one");
  ctrace_dump(handle);
  EXPECT_NE(contents(file("lum_error.log")).find("#1 one\n"), std::string::npos);
  ctrace_dump(handle);
  EXPECT_EQ(lines_of(file("lum_error.log")).size(), 1u);
}

TEST_F(traces, spell_out_what_is_not_printable_and_cut_what_is_too_long) {
  const ctrace_handle handle = open("lum_debug");
  EXPECT_EQ(ctrace_internal(handle, 1, 1, 1, "s", "a%sb\n", "\x1b[2J\n\x80%d"), 0u);
  EXPECT_EQ(ctrace_internal(handle, 2, 1, 1, "s", "%s", std::string(100000, 'x').c_str()), 0u);
  EXPECT_EQ(ctrace_internal(handle, 3, 1, 1, "s", "%s", std::string(5000, '\1').c_str()), 0u);
  const auto lines = lines_of(file("lum_debug.log"));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_TRUE(lines[0].ends_with(R"(#1 a\x1b[2J\x0a\x80%db)")) << lines[0];
  EXPECT_TRUE(lines[1].ends_with(std::string(2047, 'x') + "...")) << lines[1];
  EXPECT_TRUE(lines[2].ends_with(R"(\x01...)"));
}

TEST_F(traces, percent_signs_in_names_are_kept) {
  ctrace_set_process_name("50%v");
  const ctrace_handle handle = open("lum_info");
  ctrace_internal(handle, 5, 0, 1, "", "text");
  ctrace_set_process_name("new%n");
  ctrace_internal(handle, 5, 0, 1, "", "text");
  ctrace_set_process_name(nullptr);
  const auto lines = lines_of(file("lum_info.log"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[0].find("[50%v] lum_info #5 text"), std::string::npos) << lines[0];
  EXPECT_NE(lines[1].find("[new%n] lum_info #5 text"), std::string::npos) << lines[1];
}

TEST_F(traces, stay_within_their_size_and_keep_the_latest_lines) {
  constexpr uint32_t size = 65536;
  const ctrace_handle handle = open("lum_periodic", size);
  for (int i = 0; i < 3000; ++i) ctrace_internal(handle, 1, 1, 1, "d", "line number %d", i);
  ctrace_dump(handle);
  EXPECT_LE(fs::file_size(file("lum_periodic.log")), size / 2);
  EXPECT_LE(fs::file_size(file("lum_periodic.1.log")), size / 2);
  const auto lines = lines_of(file("lum_periodic.log"));
  ASSERT_FALSE(lines.empty());
  EXPECT_TRUE(lines.back().ends_with("line number 2999"));
  size_t files = 0;
  for ([[maybe_unused]] const auto &entry : fs::directory_iterator(folder / "traces")) ++files;
  EXPECT_EQ(files, 3u) << "both and the ring";
}

TEST_F(traces, a_channel_that_is_not_open_drops_its_lines) {
  EXPECT_EQ(ctrace_internal(0, 1, 0, 1, "", "dropped"), 0u);
  ctrace_dump(0);
  ctrace_close(0);
  const ctrace_handle handle = open("lum_info");
  ctrace_close(handle);
  EXPECT_EQ(ctrace_internal(handle, 1, 0, 1, "", "dropped"), 9u);
  EXPECT_EQ(ctrace_internal(0xFFFFFFFFFFFFFFFF, 1, 0, 1, "", "dropped"), 9u);
  ctrace_dump(handle);
  ctrace_close(handle);
  const ctrace_handle again = open("lum_info");
  EXPECT_NE(again, handle);
  EXPECT_EQ(ctrace_internal(handle, 1, 0, 1, "", "dropped"), 9u);
  EXPECT_EQ(contents(file("lum_info.log")), "");
}

TEST_F(traces, opening_goes_on_with_the_file_of_before) {
  ctrace_handle handle = open("lum_info");
  ctrace_internal(handle, 1, 0, 1, "", "one");
  ctrace_close(handle);
  handle = open("lum_info");
  ctrace_internal(handle, 1, 0, 1, "", "two");
  EXPECT_EQ(lines_of(file("lum_info.log")).size(), 2u);
}

TEST_F(traces, opening_refuses_what_makes_no_sense_and_leaves_the_handle) {
  ctrace_handle handle = 77;
  EXPECT_EQ(ctrace_open_internal(nullptr, "a", 65536, 1, key, digest, 0), 22u);
  for (const char *name : {"", "../a", "a/b", ".hidden"}) {
    EXPECT_EQ(ctrace_open_internal(&handle, name, 65536, 1, key, digest, 0), 22u) << name;
  }
  EXPECT_EQ(ctrace_open_internal(&handle, nullptr, 65536, 1, key, digest, 0), 22u);
  EXPECT_EQ(ctrace_open_internal(&handle, std::string(64, 'a').c_str(), 1, 1, key, digest, 0), 22u);
  EXPECT_EQ(ctrace_open_internal(&handle, "a", 65536, 1, nullptr, digest, 0), 22u);
  EXPECT_EQ(ctrace_open_internal(&handle, "a", 65536, 1, key, nullptr, 0), 22u);
  EXPECT_EQ(ctrace_open_internal(&handle, "a", 65536, 1, key, digest, 1), 22u);
  EXPECT_EQ(ctrace_open_internal(&handle, "a", 65536, 1, "no_such_key", digest, 0), 2u);
  EXPECT_EQ(handle, 77u);
  EXPECT_EQ(traces_set_directory("", "/tmp"), 22u);
  EXPECT_EQ(traces_set_directory(key, ""), 22u);
  EXPECT_EQ(ctrace_enable_configuration(0, nullptr), 9u);
}

TEST_F(traces, a_channel_whose_file_cannot_be_had_is_open_and_says_so) {
  std::ofstream(folder / "file") << "x";
  fs::create_directories(folder / "other/b.log");
  const std::pair<const char *, const char *> places[] = {{"file/below", "a"}, {"other", "b"}};
  for (const auto &[place, name] : places) {
    ASSERT_EQ(traces_set_directory(key, folder / place), 0u);
    log_capture log;
    const ctrace_handle handle = open(name);
    EXPECT_EQ(ctrace_enable_configuration(handle, nullptr), 0u);
    EXPECT_EQ(ctrace_internal(handle, 1, 0, 1, "", "lost"), 0u);
    ctrace_dump(handle);
    const auto status = traces_status().back();
    EXPECT_EQ(status.failures, 1u);
    EXPECT_NE(status.reason, "");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].find(status.reason), std::string::npos) << log.lines()[0];
  }
}

TEST_F(traces, a_file_that_cannot_be_written_is_reported_once_and_harms_nobody) {
  const ctrace_handle handle = open("lum_info", 32768);
  log_capture log;
  // The older file's place is taken, so the files cannot be rotated.
  fs::create_directories(file("lum_info.1.log") / "in the way");
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(ctrace_internal(handle, 1, 0, 1, "", "a line of some length"), 0u);
  }
  ctrace_dump(handle);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_NE(log.lines()[0].find("lum_info"), std::string::npos);
  ASSERT_EQ(traces_status().size(), 1u);
  EXPECT_GT(traces_status()[0].failures, 0u);
  EXPECT_NE(traces_status()[0].reason, "");
  ctrace_dump(handle);
  ctrace_set_process_name("other");
}

TEST_F(traces, a_channel_that_can_be_written_again_is_found_out_without_a_line_to_write) {
  std::ofstream(folder / "traces") << "in the way";
  const ctrace_handle handle = open("lum_error");
  ctrace_internal(handle, 1, 0, 1, "", "lost");
  ctrace_internal(handle, 1, 0, 1, "", "lost");
  ctrace_dump(handle);
  log_capture log;
  traces_tend();
  const std::string reason = traces_status()[0].reason;
  EXPECT_NE(reason, "");
  fs::remove(folder / "traces");
  traces_tend();
  EXPECT_EQ(traces_status()[0].reason, "");
  EXPECT_EQ(traces_status()[0].failures, 2u);
  const auto lines = lines_of(file("lum_error.log"));
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("#0 [traces] 2 lines were not written so far, the latest: " + reason),
            std::string::npos)
      << lines[0];
  traces_tend();
  EXPECT_EQ(lines_of(file("lum_error.log")).size(), 1u);
  EXPECT_TRUE(log.lines().empty()) << "told when it began";
}

// The file can be opened there, so only a line shows how it is.
TEST_F(traces, a_full_disk_stays_told_once_until_there_is_room) {
  const pid_t child = fork();
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const ctrace_handle handle = open("lum_error");
    const rlimit none = {0, RLIM_INFINITY}, any = {RLIM_INFINITY, RLIM_INFINITY};
    log_capture log;
    setrlimit(RLIMIT_FSIZE, &none);
    EXPECT_EQ(ctrace_internal(handle, 1, 0, 1, "", "lost"), 0u);
    ctrace_dump(handle);
    traces_tend();
    traces_tend();
    EXPECT_NE(traces_status()[0].reason, "");
    EXPECT_EQ(traces_status()[0].failures, 1u);
    setrlimit(RLIMIT_FSIZE, &any);
    EXPECT_EQ(log.lines().size(), 1u);
    traces_tend();
    EXPECT_EQ(traces_status()[0].reason, "");
    _exit(HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(traces, can_be_turned_off_once_configurable) {
  const ctrace_handle handle = open("lum_debug");
  EXPECT_EQ(traces_enable("lum_debug", false), 1u);
  EXPECT_EQ(ctrace_enable_configuration(handle, nullptr), 0u);
  EXPECT_EQ(traces_enable("lum_debug", false), 0u);
  EXPECT_EQ(traces_enable("lum_other", false), 2u);
  ctrace_internal(handle, 1, 0, 1, "", "off");
  EXPECT_EQ(traces_enable("lum_debug", true), 0u);
  ctrace_internal(handle, 1, 0, 1, "", "on");
  EXPECT_EQ(lines_of(file("lum_debug.log")).size(), 1u);
  const auto status = traces_status();
  ASSERT_EQ(status.size(), 1u);
  EXPECT_EQ(status[0].name, "lum_debug");
  EXPECT_EQ(status[0].points, 278u);
  EXPECT_EQ(status[0].digest, digest);
  EXPECT_EQ(status[0].lines, 1u);
  EXPECT_EQ(status[0].file, file("lum_debug.log"));
}

// A text that is not there cannot be read by mistake.
TEST_F(traces, nothing_is_made_of_a_line_whose_channel_is_off) {
  const ctrace_handle handle = open("lum_debug");
  ctrace_enable_configuration(handle, nullptr);
  ASSERT_EQ(traces_enable("lum_debug", false), 0u);
  void *const page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(page, MAP_FAILED);
  EXPECT_EQ(ctrace_internal(handle, 1, 1, 1, "s", "%s", static_cast<const char *>(page)), 0u);
  munmap(page, 4096);
  EXPECT_EQ(lines_of(file("lum_debug.log")).size(), 0u);
}

TEST_F(traces, a_channel_in_the_place_of_one_that_was_off_is_on) {
  const ctrace_handle before = open("lum_debug");
  ctrace_enable_configuration(before, nullptr);
  ASSERT_EQ(traces_enable("lum_debug", false), 0u);
  ctrace_close(before);
  EXPECT_EQ(ctrace_internal(before, 1, 0, 1, "", "closed"), 9u);
  const ctrace_handle now = open("lum_debug");
  EXPECT_EQ(ctrace_internal(now, 1, 0, 1, "", "open"), 0u);
  EXPECT_EQ(lines_of(file("lum_debug.log")).size(), 1u);
}

TEST_F(traces, there_are_only_so_many_channels) {
  for (int i = 0; i < 64; ++i) open(("channel_" + std::to_string(i)).c_str());
  ctrace_handle handle = 77;
  EXPECT_EQ(ctrace_open_internal(&handle, "one_more", 65536, 1, key, digest, 0), 24u);
  EXPECT_EQ(handle, 77u);
}

TEST_F(traces, come_from_many_threads_while_channels_close) {
  const ctrace_handle kept = open("kept"), closed = open("closed");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        EXPECT_EQ(ctrace_internal(kept, 1, 1, 1, "d", "%d", i), 0u);
        ctrace_internal(closed, 1, 1, 1, "d", "%d", i);
      }
    });
  }
  ctrace_dump(kept);
  ctrace_set_process_name("changed");
  ctrace_close(closed);
  for (std::thread &t : threads) t.join();
  EXPECT_EQ(lines_of(file("kept.log")).size(), 2000u);
}
