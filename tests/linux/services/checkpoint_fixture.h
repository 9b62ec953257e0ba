// A checkpoint store in a folder of its own, with the descriptors the library uses.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "chkpt.h"
#include "lum_linux/services.h"
#include "test_folder.h"

using chkpt_record = std::array<uint8_t, 96>;

inline chkpt_record record_of(uint8_t fill) {
  chkpt_record record;
  record.fill(fill);
  return record;
}

inline void put_word(void *descriptor, size_t position, uint32_t value) {
  std::memcpy(static_cast<char *>(descriptor) + position, &value, sizeof value);
}

// Runs statements on a store that nobody has open.
inline void alter_store(const std::filesystem::path &file, const std::string &statements) {
  sqlite3 *db = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
      << sqlite3_errmsg(db);
  sqlite3_close(db);
}

class checkpoints : public testing::Test {
 public:
  static constexpr uint32_t key = 0x00030007;

 protected:
  void SetUp() override { ASSERT_EQ(lum_linux::checkpoints_set_path(file), 0u); }
  void TearDown() override { lum_linux::checkpoints_close(); }

  cerrno init(uint32_t version = 0x2003, const char *name = "LUM_LIB") {
    chkpt_appdesc descriptor;
    chkpt_appdesc_init(&descriptor);
    put_word(&descriptor, CHKPT_APPDESC_VERSION, version);
    std::strcpy(reinterpret_cast<char *>(&descriptor) + CHKPT_APPDESC_NAME, name);
    return chkpt_init(0, &descriptor);
  }
  cerrno add_table(uint32_t version = 0x12003, bool persistent = true, uint32_t kind = 40) {
    chkpt_tbldesc descriptor;
    chkpt_tbldesc_init(&descriptor);
    put_word(&descriptor, CHKPT_TBLDESC_VERSION, version);
    put_word(&descriptor, CHKPT_TBLDESC_KEYED, 1);
    put_word(&descriptor, CHKPT_TBLDESC_PERSISTENT, persistent ? 1 : 0);
    return chkpt_register(&descriptor, kind, &restart, &table);
  }
  void open() {
    ASSERT_EQ(init(), 0u);
    ASSERT_EQ(add_table(), 0u);
  }
  // What a new process does.
  void reopen() {
    lum_linux::checkpoints_close();
    open();
  }
  uint64_t create_saved(uint32_t of_key, uint8_t fill) {
    uint64_t id = 0;
    EXPECT_EQ(chkpt_create(table, of_key, &id), 0u);
    const chkpt_record record = record_of(fill);
    EXPECT_EQ(chkpt_save(table, id, record.data(), record.size()), 0u);
    return id;
  }
  cerrno get(uint64_t id, chkpt_record &record) {
    uint32_t size = record.size();
    return chkpt_get(table, id, 0, record.data(), &size);
  }
  // The record saved for the key, or one of 0xEE when there is none.
  chkpt_record saved(uint32_t of_key) {
    uint64_t id = 0;
    chkpt_record record = record_of(0xEE);
    if (chkpt_mapkey(table, of_key, &id, 0) == 0) get(id, record);
    return record;
  }

  // The keys of the records that something is wrong with.
  std::vector<uint32_t> troubled(lum_linux::record_trouble what) const {
    std::vector<uint32_t> keys;
    for (const auto &one : lum_linux::checkpoints_status().troubled) {
      if (one.trouble == what) keys.push_back(one.key);
    }
    return keys;
  }

  // Runs `work` in a process of its own, which ends without closing anything; 0 when all it
  // expected came about.
  int in_child(const std::function<void()> &work) {
    const pid_t child = fork();
    if (child == 0) {
      std::signal(SIGXFSZ, SIG_IGN);
      work();
      _exit(HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
  }
  // Of this process, from now on: writes behind so many bytes of a file fail.
  static void limit_files(rlim_t most) {
    const rlimit bound = {most, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &bound), 0);
  }

  test_folder folder{folder_place::memory};
  std::filesystem::path file = folder / "state/checkpoints.db";
  uint64_t table = 0;
  uint32_t restart = 77;
};
