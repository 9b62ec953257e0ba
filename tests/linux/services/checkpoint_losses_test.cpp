// What a store has lost is found at the next start and told: damaged and moved records, a lost or
// shortened write-ahead log.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/crc.hpp>
#include <csignal>
#include <functional>

#include "services/checkpoint_fixture.h"
#include "services/fault_vfs.h"
#include "services/log_capture.h"

namespace {

namespace fs = std::filesystem;
using lum_linux::checkpoints_close;
using lum_linux::checkpoints_status;
using lum_linux::record_trouble;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class checkpoint_losses : public checkpoints {
 protected:
  // A process that works on the store, has its log unmerged, and is killed.
  void run_and_kill(const std::function<void()> &work) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      open();
      work();
      if (HasFailure()) _exit(1);
      raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
  }

  std::vector<uint32_t> lost() const { return troubled(record_trouble::lost); }

  void expect_told(const log_capture &log, uint32_t of_key, const std::string &reason) {
    char name[32];
    std::snprintf(name, sizeof name, "record 0x%08x", of_key);
    const auto lines = log.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [&](const std::string &line) {
                              return line.find(name) != std::string::npos &&
                                     line.find(reason) != std::string::npos;
                            }),
              1)
        << testing::PrintToString(lines);
  }

  fs::path wal() const { return file.string() + "-wal"; }
};

}  // namespace

TEST_F(checkpoint_losses, a_store_that_lost_nothing_has_nothing_to_tell) {
  open();
  for (uint32_t k = 1; k <= 5; ++k) create_saved(k, 1);
  uint64_t id = create_saved(9, 1);
  ASSERT_EQ(chkpt_delete(table, id), 0u);
  ASSERT_EQ(chkpt_create(table, 10, &id), 0u);
  log_capture log;
  reopen();
  EXPECT_THAT(lost(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(checkpoints_status().doubt, "");
}

TEST_F(checkpoint_losses, a_kill_loses_nothing_and_has_nothing_to_tell_of_records) {
  run_and_kill([this] {
    create_saved(1, 1);
    create_saved(2, 2);
    ASSERT_EQ(chkpt_delete(table, create_saved(3, 3)), 0u);
  });
  log_capture log;
  open();
  EXPECT_THAT(lost(), IsEmpty());
  EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("record 0x"))));
  EXPECT_EQ(saved(2), record_of(2));
}

// What a machine that stops leaves: the log as far as it was synchronised.
TEST_F(checkpoint_losses, entries_without_data_wait_for_no_disk_and_what_is_saved_among_them_does) {
  const fs::path rest = file.string() + ".rest";
  {
    const fault_vfs disk([](std::string_view, sqlite3_int64) { return SQLITE_OK; });
    open();
    uint64_t id = 0;
    const uint64_t syncs = disk.syncs();
    for (uint32_t k = 1; k <= 64; ++k) ASSERT_EQ(chkpt_create(table, k, &id), 0u);
    EXPECT_EQ(disk.syncs(), syncs);
    create_saved(key, 1);
    ASSERT_EQ(chkpt_create(table, key + 1, &id), 0u);
    create_saved(key + 2, 2);
    EXPECT_EQ(disk.syncs(), syncs + 2);
    fs::copy_file(file, rest);
    fs::copy_file(wal(), rest.string() + "-wal");
    ASSERT_LE(disk.synced_log(), fs::file_size(wal()));
    fs::resize_file(rest.string() + "-wal", disk.synced_log());
    checkpoints_close();
  }
  ASSERT_EQ(lum_linux::checkpoints_set_path(rest), 0u);
  open();
  EXPECT_EQ(saved(key), record_of(1));
  EXPECT_EQ(saved(key + 2), record_of(2));
  EXPECT_THAT(lost(), IsEmpty());
}

TEST_F(checkpoint_losses, a_damaged_record_is_told_until_it_is_saved_anew) {
  open();
  create_saved(1, 1);
  const uint64_t id = create_saved(2, 2);
  checkpoints_close();
  alter_store(file, "UPDATE entries SET checksum = checksum + 1 WHERE key=2");
  log_capture log;
  open();
  EXPECT_THAT(lost(), ElementsAre(2));
  expect_told(log, 2, "checksum");
  EXPECT_EQ(saved(1), record_of(1));
  ASSERT_EQ(chkpt_save(table, id, record_of(5).data(), 96), 0u);
  EXPECT_THAT(lost(), IsEmpty());
  reopen();
  EXPECT_THAT(lost(), IsEmpty());
}

TEST_F(checkpoint_losses, a_deleted_record_is_no_longer_told_as_lost) {
  open();
  const uint64_t id = create_saved(2, 2);
  checkpoints_close();
  alter_store(file, "UPDATE entries SET data = zeroblob(96)");
  log_capture log;
  open();
  EXPECT_THAT(lost(), ElementsAre(2));
  ASSERT_EQ(chkpt_delete(table, id), 0u);
  EXPECT_THAT(lost(), IsEmpty());
}

TEST_F(checkpoint_losses, a_record_under_another_key_is_found_out) {
  open();
  const uint64_t id = create_saved(1, 1);
  checkpoints_close();
  alter_store(file, "UPDATE entries SET key=7 WHERE key=1");
  log_capture log;
  open();
  chkpt_record record = record_of(9);
  EXPECT_EQ(get(id, record), 74u);
  EXPECT_EQ(record, record_of(9));
  EXPECT_THAT(lost(), ElementsAre(1, 7));
  expect_told(log, 1, "gone");
  expect_told(log, 7, "checksum");
}

TEST_F(checkpoint_losses, records_that_changed_places_are_found_out) {
  open();
  create_saved(1, 1);
  create_saved(2, 2);
  checkpoints_close();
  alter_store(file,
              "CREATE TEMP TABLE was AS SELECT * FROM entries;"
              "UPDATE entries SET (version, checksum, data, change) = (SELECT version, checksum,"
              " data, change FROM was WHERE was.key = 3 - entries.key)");
  log_capture log;
  open();
  EXPECT_THAT(lost(), ElementsAre(1, 2));
  EXPECT_EQ(saved(1), record_of(0xEE));
}

TEST_F(checkpoint_losses, a_record_of_another_version_is_told) {
  open();
  create_saved(1, 1);
  checkpoints_close();
  log_capture log;
  ASSERT_EQ(init(), 0u);
  ASSERT_EQ(add_table(0x12004), 0u);
  EXPECT_THAT(lost(), ElementsAre(1));
  expect_told(log, 1, "version");
}

TEST_F(checkpoint_losses, a_record_without_its_data_is_told) {
  open();
  create_saved(1, 1);
  checkpoints_close();
  alter_store(file, "UPDATE entries SET data=NULL");
  log_capture log;
  open();
  EXPECT_THAT(lost(), ElementsAre(1));
  expect_told(log, 1, "no data");
}

TEST_F(checkpoint_losses, a_lost_write_ahead_log_is_noticed) {
  open();
  create_saved(1, 1);
  create_saved(2, 2);
  checkpoints_close();
  run_and_kill([this] {
    uint64_t id = 0;
    ASSERT_EQ(chkpt_mapkey(table, 2, &id, 0), 0u);
    ASSERT_EQ(chkpt_save(table, id, record_of(5).data(), 96), 0u);
    create_saved(3, 3);
  });
  ASSERT_GT(fs::file_size(wal()), 0u);
  fs::remove(wal());
  log_capture log;
  open();
  EXPECT_THAT(lost(), ElementsAre(2, 3));
  expect_told(log, 2, "latest change");
  expect_told(log, 3, "gone");
  EXPECT_EQ(saved(1), record_of(1));
}

TEST_F(checkpoint_losses, a_write_ahead_log_without_its_last_change_is_noticed) {
  run_and_kill([this] {
    const uint64_t id = create_saved(1, 1);
    create_saved(2, 2);
    ASSERT_EQ(chkpt_save(table, id, record_of(5).data(), 96), 0u);
  });
  fs::resize_file(wal(), fs::file_size(wal()) - 100);
  log_capture log;
  open();
  EXPECT_THAT(lost(), ElementsAre(1));
  EXPECT_EQ(saved(2), record_of(2));
}

TEST_F(checkpoint_losses, a_torn_write_ahead_log_is_noticed) {
  run_and_kill([this] {
    for (uint32_t k = 1; k <= 6; ++k) create_saved(k, 1);
  });
  {
    std::fstream out(wal(), std::ios::binary | std::ios::in | std::ios::out);
    out.seekp(static_cast<std::streamoff>(fs::file_size(wal()) / 2));
    out << std::string(64, '\x5a');
  }
  log_capture log;
  open();
  EXPECT_THAT(lost(), Contains(6));
  for (uint32_t k = 1; k <= 6; ++k) {
    const auto gone = lost();
    EXPECT_EQ(saved(k) != record_of(1), std::count(gone.begin(), gone.end(), k) == 1) << k;
  }
}

TEST_F(checkpoint_losses, a_deletion_that_was_lost_with_the_log_is_done_again) {
  open();
  create_saved(1, 1);
  checkpoints_close();
  run_and_kill([this] {
    uint64_t id = 0;
    ASSERT_EQ(chkpt_mapkey(table, 1, &id, 0), 0u);
    ASSERT_EQ(chkpt_delete(table, id), 0u);
  });
  fs::remove(wal());
  log_capture log;
  open();
  EXPECT_EQ(saved(1), record_of(0xEE));
  EXPECT_THAT(lost(), IsEmpty());
  expect_told(log, 1, "deleted");
  reopen();
  EXPECT_EQ(saved(1), record_of(0xEE));
}

TEST_F(checkpoint_losses, a_store_that_is_gone_is_told_of) {
  open();
  create_saved(1, 1);
  checkpoints_close();
  fs::remove(file);
  log_capture log;
  open();
  EXPECT_EQ(restart, 0u);
  EXPECT_THAT(lost(), ElementsAre(1));
}

TEST_F(checkpoint_losses, a_store_without_its_journal_says_what_cannot_be_known) {
  open();
  create_saved(1, 1);
  checkpoints_close();
  fs::remove(file.string() + "-changes");
  log_capture log;
  open();
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("journal")));
  EXPECT_EQ(saved(1), record_of(1));
  EXPECT_EQ(checkpoints_status().doubt, "");
  reopen();
  EXPECT_THAT(log.lines(), SizeIs(1));
}

// Many more changes than the journal holds.
TEST_F(checkpoint_losses, the_journal_goes_round) {
  open();
  const uint64_t id = create_saved(1, 1);
  create_saved(2, 2);
  for (int i = 0; i < 5000; ++i) {
    ASSERT_EQ(chkpt_save(table, id, record_of(static_cast<uint8_t>(i)).data(), 96), 0u);
  }
  const auto size = fs::file_size(file.string() + "-changes");
  create_saved(3, 3);
  EXPECT_EQ(fs::file_size(file.string() + "-changes"), size);
  checkpoints_close();
  alter_store(file, "DELETE FROM entries WHERE key=3");
  log_capture log;
  open();
  EXPECT_THAT(lost(), ElementsAre(3));
}

TEST_F(checkpoint_losses, tending_merges_the_log) {
  run_and_kill([this] {
    create_saved(1, 1);
    create_saved(2, 2);
    lum_linux::checkpoints_tend();
  });
  fs::remove(wal());
  log_capture log;
  open();
  EXPECT_THAT(lost(), IsEmpty());
  EXPECT_EQ(saved(2), record_of(2));
}

namespace {

// A store as the first schema had it, with two whole records, a damaged one and one without data.
void make_old_store(const fs::path &file) {
  fs::create_directories(file.parent_path());
  const auto row = [](uint32_t id, uint32_t key, uint8_t fill, uint32_t add) {
    boost::crc_32_type crc;
    const chkpt_record data = record_of(fill);
    crc.process_bytes(data.data(), data.size());
    char text[512];
    std::string hex;
    for (size_t i = 0; i < data.size(); ++i) {
      std::snprintf(text, sizeof text, "%02x", fill);
      hex += text;
    }
    std::snprintf(text, sizeof text, "INSERT INTO entries VALUES(%u, 40, %u, 73731, %u, x'%s');",
                  id, key, crc.checksum() + add, hex.c_str());
    return std::string(text);
  };
  alter_store(file,
              "PRAGMA journal_mode=WAL; PRAGMA application_id=1280658755; PRAGMA user_version=1;"
              "CREATE TABLE application(name TEXT NOT NULL, version INTEGER NOT NULL);"
              "CREATE TABLE tables(kind INTEGER PRIMARY KEY);"
              "CREATE TABLE entries(id INTEGER PRIMARY KEY AUTOINCREMENT, kind INTEGER NOT NULL,"
              " key INTEGER NOT NULL, version INTEGER, checksum INTEGER, data BLOB,"
              " UNIQUE(kind, key));"
              "INSERT INTO application VALUES('LUM_LIB', 8195); INSERT INTO tables VALUES(40);" +
                  row(3, 1, 1, 0) + row(4, 2, 2, 0) + row(7, 3, 3, 1) +
                  "INSERT INTO entries(id, kind, key) VALUES(9, 40, 4);");
}

}  // namespace

TEST_F(checkpoint_losses, a_store_of_the_first_schema_is_carried_over) {
  make_old_store(file);
  log_capture log;
  open();
  EXPECT_EQ(restart, 1u);
  EXPECT_TRUE(checkpoints_status().set_aside.empty());
  EXPECT_EQ(saved(1), record_of(1));
  EXPECT_EQ(saved(2), record_of(2));
  EXPECT_THAT(lost(), ElementsAre(3));
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("record 0x00000003")));
  uint64_t id = 0;
  EXPECT_EQ(chkpt_mapkey(table, 2, &id, 0), 0u);
  EXPECT_EQ(id, 4u);
  EXPECT_EQ(chkpt_mapkey(table, 4, &id, 0), 2u);
  EXPECT_GT(create_saved(5, 5), 9u);

  reopen();
  EXPECT_EQ(saved(1), record_of(1));
  EXPECT_EQ(saved(5), record_of(5));
  EXPECT_THAT(lost(), ElementsAre(3));
}

// Killed at the disk's mercy or out of room half-way, it is still the old store, and comes over
// later.
TEST_F(checkpoint_losses, an_old_store_that_cannot_be_carried_over_stays_one) {
  make_old_store(file);
  const std::string before = contents(file);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit bound = {1024, 1024};
    if (setrlimit(RLIMIT_FSIZE, &bound) != 0) _exit(1);
    init();
    _exit(checkpoints_status().open || !checkpoints_status().set_aside.empty() ? 2 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(contents(file), before);
  log_capture log;
  open();
  EXPECT_EQ(saved(2), record_of(2));
}
