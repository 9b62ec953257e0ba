// What a store outlives: kills, full disks, damage and foreign files.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <random>
#include <thread>

#include "services/checkpoint_fixture.h"
#include "services/log_capture.h"

namespace {

namespace fs = std::filesystem;
using lum_linux::checkpoints_close;
using lum_linux::checkpoints_status;

class checkpoint_faults : public checkpoints {
 protected:
  void damage(size_t offset, size_t length) {
    std::fstream out(file, std::ios::binary | std::ios::in | std::ios::out);
    out.seekp(static_cast<std::streamoff>(offset));
    out << std::string(length, '\x5a');
  }

  // The store is set aside, told of once, kept as it was, and a new one begun.
  void expect_set_aside() {
    const std::string before = contents(file);
    log_capture log;
    ASSERT_EQ(init(), 0u);
    ASSERT_EQ(add_table(), 0u);
    EXPECT_EQ(restart, 0u);
    const auto status = checkpoints_status();
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1 + status.troubled.size());
    EXPECT_NE(lines[0].find(status.set_aside.string()), std::string::npos);
    EXPECT_FALSE(status.set_aside_reason.empty());
    EXPECT_TRUE(status.set_aside.string().starts_with(file.string() + ".set-aside-"));
    EXPECT_EQ(contents(status.set_aside), before);
    create_saved(key, 3);
    reopen();
    EXPECT_EQ(restart, 1u);
    EXPECT_EQ(log.lines().size(), lines.size());
    EXPECT_EQ(saved(key), record_of(3));
  }
};

}  // namespace

// A child saves and tells of each save once the call has returned; it is killed at some moment, and
// what it told of, or the save after it, is there.
TEST_F(checkpoint_faults, kill_9_loses_nothing_that_was_reported_saved) {
  std::mt19937 random(3);
  uint8_t last = 0;
  for (int round = 0; round < 12; ++round) {
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      uint64_t id = 0;
      if (init() != 0 || add_table() != 0) _exit(1);
      if (chkpt_mapkey(table, key, &id, 0) != 0 && chkpt_create(table, key, &id) != 0) _exit(2);
      for (uint8_t value = last;;) {
        ++value;
        if (chkpt_save(table, id, record_of(value).data(), 96) != 0) _exit(3);
        if (write(pipe_ends[1], &value, 1) != 1) _exit(4);
      }
    }
    ::close(pipe_ends[1]);
    uint8_t told = 0;
    ASSERT_EQ(read(pipe_ends[0], &told, 1), 1) << "round " << round;
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
    ASSERT_EQ(kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << WEXITSTATUS(status);
    while (read(pipe_ends[0], &told, 1) == 1) {
    }
    ::close(pipe_ends[0]);

    open();
    EXPECT_EQ(restart, 1u);
    const chkpt_record found = saved(key);
    EXPECT_EQ(found, record_of(found[0])) << "torn";
    EXPECT_TRUE(found[0] == told || found[0] == static_cast<uint8_t>(told + 1))
        << int{found[0]} << " after " << int{told};
    EXPECT_TRUE(checkpoints_status().set_aside.empty());
    checkpoints_close();
    last = found[0];
  }
}

TEST_F(checkpoint_faults, a_killed_delete_and_create_hold_too) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (init() != 0 || add_table() != 0) _exit(1);
    const uint64_t gone = create_saved(1, 1);
    create_saved(2, 2);
    if (chkpt_delete(table, gone) != 0) _exit(2);
    raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  open();
  EXPECT_EQ(saved(1), record_of(0xEE));
  EXPECT_EQ(saved(2), record_of(2));
}

// The child's files may grow by a few pages only. It goes on until a call fails, and exits with 0
// when the code is right and everything told to be saved can still be read.
TEST_F(checkpoint_faults, a_full_disk_is_reported_and_loses_nothing) {
  open();
  for (uint32_t k = 1; k <= 20; ++k) create_saved(k, static_cast<uint8_t>(k));
  checkpoints_close();
  const rlim_t limit = static_cast<rlim_t>(fs::file_size(file)) + 40000;
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit bound = {limit, limit};
    if (setrlimit(RLIMIT_FSIZE, &bound) != 0) _exit(1);
    if (init() != 0 || add_table() != 0) _exit(2);
    for (uint32_t k = 21; k < 10000; ++k) {
      uint64_t id = 0;
      cerrno rc = chkpt_create(table, k, &id);
      if (rc == 0) rc = chkpt_save(table, id, record_of(static_cast<uint8_t>(k)).data(), 96);
      if (rc == 0) continue;
      if (rc != 28 && rc != 5) _exit(3);
      if (checkpoints_status().failures == 0) _exit(4);
      for (uint32_t earlier = 1; earlier < k; ++earlier) {
        if (saved(earlier) != record_of(static_cast<uint8_t>(earlier))) _exit(5);
      }
      _exit(0);
    }
    _exit(6);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  open();
  EXPECT_EQ(restart, 1u);
  for (uint32_t k = 1; k <= 21; ++k) EXPECT_EQ(saved(k), record_of(static_cast<uint8_t>(k)));
}

TEST_F(checkpoint_faults, a_full_disk_at_the_start_still_lets_records_be_read) {
  open();
  create_saved(key, 8);
  uint64_t without_data = 0;
  ASSERT_EQ(chkpt_create(table, 99, &without_data), 0u);
  checkpoints_close();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit nothing = {0, 0};
    if (setrlimit(RLIMIT_FSIZE, &nothing) != 0) _exit(1);
    if (init() != 0) _exit(2);
    if (add_table() != 0) _exit(3);
    if (saved(key) != record_of(8) || restart != 1) _exit(4);
    const auto told = checkpoints_status();
    _exit(told.open && !told.usable && !told.reason.empty() ? 0 : 5);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(checkpoint_faults, a_store_that_another_process_has_open_is_opened_when_that_ends) {
  int to_parent[2], to_child[2];
  ASSERT_EQ(pipe(to_parent), 0);
  ASSERT_EQ(pipe(to_child), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  char byte = 0;
  if (child == 0) {
    if (init() != 0 || add_table() != 0) _exit(1);
    if (write(to_parent[1], "x", 1) != 1 || read(to_child[0], &byte, 1) != 1) _exit(2);
    _exit(0);
  }
  ASSERT_EQ(read(to_parent[0], &byte, 1), 1);
  ASSERT_EQ(init(), 0u);
  EXPECT_FALSE(checkpoints_status().open);
  EXPECT_TRUE(checkpoints_status().set_aside.empty());
  ASSERT_EQ(write(to_child[1], "x", 1), 1);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  for (const int fd : {to_parent[0], to_parent[1], to_child[0], to_child[1]}) ::close(fd);
  lum_linux::checkpoints_tend();
  EXPECT_TRUE(checkpoints_status().open);
}

TEST_F(checkpoint_faults, a_file_that_is_no_database_is_set_aside) {
  fs::create_directories(file.parent_path());
  std::ofstream(file) << std::string(5000, 'x');
  expect_set_aside();
}

TEST_F(checkpoint_faults, a_damaged_header_is_set_aside) {
  open();
  create_saved(key, 1);
  checkpoints_close();
  damage(0, 64);
  expect_set_aside();
}

TEST_F(checkpoint_faults, damaged_pages_are_set_aside) {
  open();
  for (uint32_t k = 1; k <= 200; ++k) create_saved(k, 1);
  checkpoints_close();
  damage(fs::file_size(file) / 2, 8192);
  expect_set_aside();
}

TEST_F(checkpoint_faults, a_store_cut_short_is_set_aside) {
  open();
  for (uint32_t k = 1; k <= 200; ++k) create_saved(k, 1);
  checkpoints_close();
  fs::resize_file(file, fs::file_size(file) / 2);
  expect_set_aside();
}

TEST_F(checkpoint_faults, an_empty_file_is_a_new_store) {
  fs::create_directories(file.parent_path());
  std::ofstream(file).flush();
  log_capture log;
  open();
  EXPECT_EQ(restart, 0u);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(checkpoint_faults, a_database_of_somebody_else_is_set_aside) {
  fs::create_directories(file.parent_path());
  alter_store(file, "CREATE TABLE music(title TEXT); INSERT INTO music VALUES('song')");
  expect_set_aside();
}

TEST_F(checkpoint_faults, another_schema_version_is_set_aside) {
  open();
  checkpoints_close();
  alter_store(file, "PRAGMA user_version=3");
  expect_set_aside();
}

TEST_F(checkpoint_faults, a_store_with_other_columns_is_set_aside) {
  open();
  checkpoints_close();
  alter_store(file, "ALTER TABLE entries RENAME COLUMN data TO content");
  expect_set_aside();
}

TEST_F(checkpoint_faults, another_application_version_is_set_aside) {
  ASSERT_EQ(init(0x2002), 0u);
  ASSERT_EQ(add_table(), 0u);
  checkpoints_close();
  expect_set_aside();
}

TEST_F(checkpoint_faults, another_application_is_set_aside) {
  ASSERT_EQ(init(0x2003, "OTHER"), 0u);
  checkpoints_close();
  expect_set_aside();
}

TEST_F(checkpoint_faults, two_stores_set_aside_in_the_same_second_are_both_kept) {
  fs::create_directories(file.parent_path());
  std::ofstream(file) << std::string(5000, 'x');
  log_capture log;
  open();
  const fs::path first = checkpoints_status().set_aside;
  checkpoints_close();
  std::ofstream(file) << std::string(5000, 'y');
  open();
  const fs::path second = checkpoints_status().set_aside;
  EXPECT_NE(first, second);
  EXPECT_EQ(contents(first), std::string(5000, 'x'));
  EXPECT_EQ(contents(second).substr(0, 5000), std::string(5000, 'y'));
}

// Damage anywhere ends in a store that works, never in a crash.
TEST_F(checkpoint_faults, random_damage_is_outlived) {
  std::mt19937 random(5);
  log_capture log;
  for (int round = 0; round < 25; ++round) {
    for (const auto &entry : fs::directory_iterator(folder.path())) fs::remove_all(entry);
    open();
    for (uint32_t k = 1; k <= 30; ++k) create_saved(k, 1);
    checkpoints_close();
    for (int spot = 0; spot < 3; ++spot) {
      damage(random() % fs::file_size(file), 1 + random() % 300);
    }
    ASSERT_EQ(init(), 0u);
    ASSERT_EQ(add_table(), 0u);
    for (uint32_t k = 1; k <= 30; ++k) {
      const chkpt_record found = saved(k);
      EXPECT_TRUE(found == record_of(1) || found == record_of(0xEE));
    }
    checkpoints_close();
  }
}
