#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <future>
#include <thread>

#include "bounded_copy.h"
#include "cerr.h"
#include "ptd.h"
#include "refused_thread_ends.h"
#include "services/log_capture.h"
#include "tern.h"

TEST(thread_ids, are_the_kernels_and_differ_between_threads) {
  EXPECT_EQ(tern_gettid(), static_cast<int32_t>(syscall(SYS_gettid)));
  EXPECT_EQ(tern_gettid(), tern_gettid());
  EXPECT_NE(std::async(std::launch::async, tern_gettid).get(), tern_gettid());
}

TEST(thread_ids, a_forked_child_has_its_own) {
  tern_gettid();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(tern_gettid() == static_cast<int32_t>(syscall(SYS_gettid)) ? 0 : 1);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(system_log, formats_a_line_and_cuts_what_is_too_long) {
  log_capture log;
  tern_syslog(0, "LUM : %s failed %d\n", "this", 7);
  tern_syslog(0, "%s", std::string(5000, 'x').c_str());
  tern_syslog(0, nullptr);
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[0], "LUM : this failed 7");
  EXPECT_EQ(log.lines()[1], std::string(1023, 'x'));
}

TEST(system_log, without_a_sink_goes_to_syslog) {
  lum_linux::system_log_set_sink({});
  tern_syslog(0, "test of the system log %d", 1);
}

TEST(bounded_copy, copies_up_to_the_end_or_the_count) {
  char out[8] = "xxxxxxx";
  EXPECT_EQ(strncpy_s(out, sizeof out, "abc", 7), 0u);
  EXPECT_STREQ(out, "abc");
  EXPECT_EQ(strncpy_s(out, sizeof out, "abcdefghij", 7), 0u);
  EXPECT_STREQ(out, "abcdefg");
  const char open_ended[3] = {'a', 'b', 'c'};
  EXPECT_EQ(strncpy_s(out, sizeof out, open_ended, 3), 0u);
  EXPECT_STREQ(out, "abc");
  EXPECT_EQ(strncpy_s(out, sizeof out, "abc", 0), 0u);
  EXPECT_STREQ(out, "");
}

TEST(bounded_copy, refuses_what_does_not_fit_and_leaves_the_destination_empty) {
  char out[4] = "abc";
  EXPECT_EQ(strncpy_s(out, sizeof out, "x", 4), 22u);
  EXPECT_STREQ(out, "");
  std::strcpy(out, "abc");
  EXPECT_EQ(strncpy_s(out, sizeof out, nullptr, 1), 22u);
  EXPECT_STREQ(out, "");
  EXPECT_EQ(strncpy_s(nullptr, 4, "x", 1), 22u);
  out[0] = 'a';
  EXPECT_EQ(strncpy_s(out, 0, "x", 0), 22u);
  EXPECT_EQ(out[0], 'a');
}

TEST(error_texts, name_every_kind_of_code) {
  EXPECT_STREQ(cerr_strerror(0), "Success");
  EXPECT_STREQ(cerr_strerror(2), "No such file or directory");
  EXPECT_STREQ(cerr_strerror(22), "Invalid argument");
  EXPECT_STREQ(cerr_strerror(0xFFFFFFFF), "Not found");
  EXPECT_STREQ(cerr_strerror(0x20EB8E00), "Checkpoint service already initialised");
  EXPECT_STREQ(cerr_strerror(0x809A4200), "Interface already as requested");
  EXPECT_STREQ(cerr_strerror(0x12345678), "error 0x12345678");
  EXPECT_STREQ(cerr_strerror(4242), "error 0x1092");
}

TEST(error_texts, are_each_threads_own) {
  const char *mine = cerr_strerror(0x11111111);
  std::thread([] { EXPECT_STREQ(cerr_strerror(0x22222222), "error 0x22222222"); }).join();
  EXPECT_STREQ(mine, "error 0x11111111");
}

TEST(blocked_threads, lists_who_waits_where_and_since_when) {
  EXPECT_TRUE(lum_linux::blocked_threads().empty());
  pthread_mutex_t first, second;
  std::promise<void> marked, listed;
  const auto start = std::chrono::steady_clock::now();
  ptd_set_mutex_block(&first, "first_function", 68);
  std::thread other([&] {
    ptd_set_mutex_block(&second, nullptr, 1);
    ptd_set_mutex_block(&second, std::string(200, 'f').c_str(), 2);
    marked.set_value();
    listed.get_future().wait();
  });
  marked.get_future().wait();
  auto waiting = lum_linux::blocked_threads();
  ASSERT_EQ(waiting.size(), 2u);
  EXPECT_EQ(waiting[0].tid, tern_gettid());
  EXPECT_EQ(waiting[0].function, "first_function");
  EXPECT_EQ(waiting[0].line, 68u);
  EXPECT_EQ(waiting[0].mutex, &first);
  EXPECT_GE(waiting[0].since, start);
  EXPECT_EQ(waiting[1].function, std::string(63, 'f'));
  EXPECT_EQ(waiting[1].line, 2u);
  ptd_unset_mutex_block(&second);
  EXPECT_EQ(lum_linux::blocked_threads().size(), 2u);
  ptd_unset_mutex_block(&first);
  EXPECT_EQ(lum_linux::blocked_threads().size(), 1u);
  listed.set_value();
  other.join();
  EXPECT_TRUE(lum_linux::blocked_threads().empty());
}

// More of them than can be listed at a time: each leaves room for the next.
TEST(blocked_threads, are_listed_also_without_memory_for_being_told_of_their_end) {
#ifdef LUM_SANITIZERS_NEW
  GTEST_SKIP() << "memory does not run out here";
#endif
  pthread_mutex_t mutex;
  for (int i = 0; i < 600; ++i) {
    std::thread([&] {
      refuses_thread_ends = true;
      ptd_set_mutex_block(&mutex, "without_memory", 1);
      refuses_thread_ends = false;
      EXPECT_EQ(lum_linux::blocked_threads().size(), 1u);
      ptd_unset_mutex_block(&mutex);
    }).join();
  }
  EXPECT_TRUE(lum_linux::blocked_threads().empty());
}

TEST(blocked_threads, give_their_place_back_when_they_end) {
  pthread_mutex_t mutex;
  for (int i = 0; i < 600; ++i) {
    std::thread([&] {
      ptd_set_mutex_block(&mutex, "here", 1);
      EXPECT_EQ(lum_linux::blocked_threads().size(), 1u);
    }).join();
  }
  EXPECT_TRUE(lum_linux::blocked_threads().empty());
}

TEST(blocked_threads, may_be_listed_while_marks_change) {
  std::atomic<bool> done = false;
  std::vector<std::thread> threads;
  pthread_mutex_t mutex;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      while (!done) {
        ptd_set_mutex_block(&mutex, "here", 1);
        ptd_unset_mutex_block(&mutex);
      }
    });
  }
  for (int i = 0; i < 200; ++i) {
    for (const auto &waiting : lum_linux::blocked_threads()) EXPECT_EQ(waiting.function, "here");
  }
  done = true;
  for (std::thread &t : threads) t.join();
}
