// The service without a store that can be used: it starts, says so, keeps nothing, and opens the
// store as soon as that can be done.
#include <gmock/gmock.h>

#include "services/checkpoint_fixture.h"
#include "services/fault_vfs.h"
#include "services/log_capture.h"

namespace {

namespace fs = std::filesystem;
using lum_linux::checkpoints_close;
using lum_linux::checkpoints_status;
using lum_linux::checkpoints_tend;
using lum_linux::record_trouble;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class checkpoint_without_store : public checkpoints {
 protected:
  // The folder cannot be made as long as a plain file stands in its place.
  void block() { std::ofstream(file.parent_path()) << "x"; }
  void unblock() { fs::remove(file.parent_path()); }

  // The store's files and their folder; everybody may read them.
  void allow_writing(bool is_allowed) {
    const auto read = fs::perms::group_read | fs::perms::others_read;
    const auto enter = read | fs::perms::group_exec | fs::perms::others_exec;
    const auto write = fs::perms::owner_write;
    const auto how = is_allowed ? fs::perm_options::add : fs::perm_options::remove;
    for (const auto &found : fs::directory_iterator(file.parent_path())) {
      fs::permissions(found.path(), read, fs::perm_options::add);
      fs::permissions(found.path(), write, how);
    }
    fs::permissions(folder.path(), enter, fs::perm_options::add);
    fs::permissions(file.parent_path(), enter, fs::perm_options::add);
    fs::permissions(file.parent_path(), write, how);
  }

  // Root, who may write whatever the mode is, becomes another user, or itself again.
  static void act_as(uid_t user) {
    if (getuid() == 0) {
      EXPECT_EQ(seteuid(user), 0);
    }
  }

  // What the library does when it creates a port's record; the settings it comes up with.
  chkpt_record come_up(uint32_t of_key, uint64_t &id) {
    chkpt_record record = record_of(0);
    if (chkpt_mapkey(table, of_key, &id, 0) != 0) {
      chkpt_create(table, of_key, &id);
    } else {
      get(id, record);
    }
    return record;
  }
};

}  // namespace

TEST_F(checkpoint_without_store, the_service_starts_and_says_why_nothing_is_kept) {
  block();
  log_capture log;
  ASSERT_EQ(init(), 0u);
  ASSERT_EQ(add_table(), 0u);
  EXPECT_EQ(restart, 0u);
  EXPECT_FALSE(checkpoints_status().open);
  EXPECT_THAT(checkpoints_status().reason, Not(IsEmpty()));
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr(checkpoints_status().reason)));
  EXPECT_EQ(init(), CHKPT_ALREADY_INITIALISED);
}

TEST_F(checkpoint_without_store, calls_fail_with_its_code_and_are_told) {
  block();
  open();
  uint64_t id = 0, walk = 0;
  EXPECT_EQ(come_up(key, id), record_of(0));
  EXPECT_NE(id, 0u);
  const cerrno code = chkpt_save(table, id, record_of(5).data(), 96);
  EXPECT_EQ(code, 20u);
  chkpt_record record = record_of(9);
  EXPECT_EQ(get(id, record), code);
  EXPECT_EQ(record, record_of(9));
  EXPECT_EQ(chkpt_create(table, 4, &walk), code);
  EXPECT_EQ(chkpt_delete(table, id), code);
  EXPECT_EQ(chkpt_iterate_start(table, &walk), code);
  EXPECT_THAT(troubled(record_trouble::unsaved), ElementsAre(key));
  EXPECT_EQ(checkpoints_status().last_failure, checkpoints_status().reason);
}

TEST_F(checkpoint_without_store, it_is_opened_later_and_keeps_what_is_saved_from_then_on) {
  block();
  log_capture log;
  open();
  uint64_t id = 0, other = 0;
  come_up(key, id);
  come_up(8, other);
  EXPECT_NE(chkpt_save(table, id, record_of(5).data(), 96), 0u);
  checkpoints_tend();
  EXPECT_FALSE(checkpoints_status().open);
  EXPECT_THAT(log.lines(), SizeIs(1)) << "told once";

  unblock();
  checkpoints_tend();
  EXPECT_TRUE(checkpoints_status().open);
  EXPECT_EQ(checkpoints_status().reason, "");
  EXPECT_THAT(troubled(record_trouble::unread), IsEmpty());
  EXPECT_THAT(troubled(record_trouble::unsaved), ElementsAre(key)) << "what was not kept is not";
  EXPECT_EQ(chkpt_save(table, id, record_of(6).data(), 96), 0u);
  EXPECT_EQ(chkpt_delete(table, other), 0u) << "there is nothing to delete";
  EXPECT_THAT(checkpoints_status().troubled, IsEmpty());
  reopen();
  EXPECT_EQ(restart, 1u);
  EXPECT_EQ(saved(key), record_of(6));
}

// The port came up without its settings; saving what it has would be the end of them.
TEST_F(checkpoint_without_store, records_that_could_not_be_read_are_not_saved_over) {
  open();
  create_saved(key, 5);
  create_saved(8, 8);
  checkpoints_close();
  uint64_t id = 0, other = 0;
  {
    const fault_vfs faulty([](std::string_view, sqlite3_int64) { return SQLITE_IOERR_READ; });
    open();
    EXPECT_FALSE(checkpoints_status().open);
    EXPECT_EQ(come_up(key, id), record_of(0));
    EXPECT_EQ(come_up(3, other), record_of(0));
  }
  log_capture log;
  checkpoints_tend();
  ASSERT_TRUE(checkpoints_status().open);
  EXPECT_THAT(troubled(record_trouble::unread), ElementsAre(key));
  EXPECT_EQ(chkpt_save(table, id, record_of(1).data(), 96), 17u);
  EXPECT_THAT(troubled(record_trouble::unsaved), ElementsAre(key));
  EXPECT_EQ(chkpt_save(table, other, record_of(3).data(), 96), 0u);
  reopen();
  EXPECT_EQ(saved(key), record_of(5));
  EXPECT_EQ(saved(8), record_of(8));
  EXPECT_EQ(saved(3), record_of(3));
  EXPECT_THAT(checkpoints_status().troubled, IsEmpty());
}

TEST_F(checkpoint_without_store, a_port_deleted_and_created_anew_gets_rid_of_what_was_not_read) {
  open();
  create_saved(key, 5);
  checkpoints_close();
  uint64_t id = 0;
  {
    const fault_vfs faulty([](std::string_view, sqlite3_int64) { return SQLITE_IOERR_READ; });
    open();
    come_up(key, id);
  }
  checkpoints_tend();
  EXPECT_EQ(chkpt_mapkey(table, key, &id, 0), 0u);
  EXPECT_EQ(chkpt_delete(table, id), 0u);
  EXPECT_THAT(checkpoints_status().troubled, IsEmpty());
  come_up(key, id);
  EXPECT_EQ(chkpt_save(table, id, record_of(6).data(), 96), 0u);
  EXPECT_EQ(saved(key), record_of(6));
}

// A read that fails while the store is open: neither taken for a record that is not there nor saved
// over. The records are more than SQLite keeps in memory.
TEST_F(checkpoint_without_store, a_record_that_cannot_be_read_just_now_keeps_its_data) {
  std::vector<uint8_t> data(4000, 1);
  open();
  for (uint32_t k = 1; k <= 2000; ++k) {
    uint64_t id = 0;
    ASSERT_EQ(chkpt_create(table, k, &id), 0u);
    ASSERT_EQ(chkpt_save(table, id, data.data(), 4000), 0u);
  }
  checkpoints_close();
  bool failing = false;
  const fault_vfs faulty(
      [&](std::string_view, sqlite3_int64) { return failing ? SQLITE_IOERR_READ : SQLITE_OK; });
  open();
  failing = true;
  uint64_t id = 0;
  uint32_t size = 4000;
  EXPECT_EQ(chkpt_mapkey(table, 1, &id, 0), 0u);
  EXPECT_EQ(chkpt_get(table, id, 0, data.data(), &size), 5u);
  failing = false;
  data.assign(4000, 7);
  EXPECT_EQ(chkpt_save(table, id, data.data(), 4000), 17u);
  EXPECT_THAT(troubled(record_trouble::unread), ElementsAre(1));
  reopen();
  EXPECT_EQ(chkpt_mapkey(table, 1, &id, 0), 0u);
  EXPECT_EQ(chkpt_get(table, id, 0, data.data(), &size), 0u);
  EXPECT_EQ(data, std::vector<uint8_t>(4000, 1));
  checkpoints_close();  // the file system goes before the fixture
}

TEST_F(checkpoint_without_store, a_full_disk_without_a_store_keeps_nothing_and_loses_nothing) {
  EXPECT_EQ(in_child([this] {
              limit_files(0);
              open();
              EXPECT_FALSE(checkpoints_status().open);
              uint64_t id = 0;
              come_up(key, id);
              EXPECT_NE(chkpt_save(table, id, record_of(5).data(), 96), 0u);
              limit_files(RLIM_INFINITY);
              checkpoints_tend();
              EXPECT_TRUE(checkpoints_status().open) << checkpoints_status().reason;
              EXPECT_EQ(chkpt_save(table, id, record_of(5).data(), 96), 0u);
            }),
            0);
  open();
  EXPECT_EQ(saved(key), record_of(5));
}

// The code of the reason must not say that there is no record.
TEST_F(checkpoint_without_store, a_store_that_leads_nowhere_is_none) {
  fs::create_directories(file.parent_path());
  fs::create_symlink(folder / "nowhere/checkpoints.db", file);
  open();
  EXPECT_FALSE(checkpoints_status().open);
  uint64_t id = 0;
  come_up(key, id);
  EXPECT_EQ(chkpt_save(table, id, record_of(5).data(), 96), 5u);
  EXPECT_THAT(troubled(record_trouble::unsaved), ElementsAre(key));
  EXPECT_THAT(troubled(record_trouble::unread), ElementsAre(key));
}

TEST_F(checkpoint_without_store, a_disk_that_fills_up_is_told_until_there_is_room) {
  EXPECT_EQ(in_child([this] {
              open();
              const uint64_t id = create_saved(key, 5);
              EXPECT_TRUE(checkpoints_status().usable);
              log_capture log;
              limit_files(0);
              EXPECT_NE(chkpt_save(table, id, record_of(6).data(), 96), 0u);
              EXPECT_NE(chkpt_save(table, id, record_of(7).data(), 96), 0u);
              EXPECT_TRUE(checkpoints_status().open);
              EXPECT_FALSE(checkpoints_status().usable);
              EXPECT_THAT(log.lines(), ElementsAre(HasSubstr(checkpoints_status().reason)));
              EXPECT_EQ(saved(key), record_of(5));
              limit_files(RLIM_INFINITY);
              checkpoints_tend();
              EXPECT_TRUE(checkpoints_status().usable);
              EXPECT_EQ(checkpoints_status().reason, "");
              EXPECT_THAT(log.lines(), SizeIs(2));
              EXPECT_THAT(troubled(record_trouble::unsaved), ElementsAre(key));
            }),
            0);
}

// What is wrong with one record says nothing of the store.
TEST_F(checkpoint_without_store, an_answer_about_a_record_leaves_the_store_usable) {
  open();
  create_saved(key, 5);
  uint64_t id = 0;
  EXPECT_EQ(chkpt_create(table, key, &id), 17u);
  EXPECT_EQ(chkpt_delete(table, 4711), 2u);
  EXPECT_TRUE(checkpoints_status().usable);
}

TEST_F(checkpoint_without_store, an_error_of_the_disk_keeps_the_store_as_it_is) {
  open();
  create_saved(key, 5);
  checkpoints_close();
  const std::string before = contents(file);
  uint64_t id = 0;
  {
    fault_vfs disk([](std::string_view, sqlite3_int64) { return SQLITE_OK; });
    disk.set_read_only();
    open();
    EXPECT_FALSE(checkpoints_status().open);
    come_up(key, id);
    EXPECT_NE(chkpt_save(table, id, record_of(6).data(), 96), 0u);
  }
  EXPECT_EQ(contents(file), before);
  checkpoints_tend();
  EXPECT_TRUE(checkpoints_status().open) << checkpoints_status().reason;
  EXPECT_THAT(troubled(record_trouble::unread), ElementsAre(key));
  reopen();
  EXPECT_EQ(saved(key), record_of(5));
}

TEST_F(checkpoint_without_store, a_store_that_cannot_be_written_is_read) {
  for (const bool is_merged : {true, false}) {
    EXPECT_EQ(in_child([&] {
                open();
                create_saved(is_merged ? key : key + 1, 5);
                if (is_merged) checkpoints_close();
              }),
              0);
    EXPECT_EQ(fs::exists(file.string() + "-wal"), !is_merged);
    const std::string before = contents(file);
    allow_writing(false);
    EXPECT_EQ(in_child([&] {
                act_as(65534);
                open();
                EXPECT_EQ(restart, 1u);
                EXPECT_TRUE(checkpoints_status().open) << checkpoints_status().reason;
                EXPECT_FALSE(checkpoints_status().usable);
                EXPECT_THAT(checkpoints_status().reason, HasSubstr("Permission denied"));
                uint64_t id = 0;
                EXPECT_EQ(come_up(is_merged ? key : key + 1, id), record_of(5));
                EXPECT_EQ(chkpt_save(table, id, record_of(6).data(), 96), 13u);
                EXPECT_EQ(chkpt_create(table, 4, &id), 13u);
                log_capture log;
                checkpoints_tend();
                EXPECT_THAT(log.lines(), IsEmpty());
                checkpoints_close();
              }),
              0);
    EXPECT_EQ(contents(file), before);
    allow_writing(true);
  }
}

TEST_F(checkpoint_without_store, a_store_that_could_only_be_read_is_written_when_it_can) {
  open();
  create_saved(key, 5);
  uint64_t without_data = 0;
  ASSERT_EQ(chkpt_create(table, key + 1, &without_data), 0u);
  checkpoints_close();
  allow_writing(false);
  EXPECT_EQ(in_child([&] {
              act_as(65534);
              open();
              EXPECT_FALSE(checkpoints_status().usable);
              uint64_t id = 0, other = 0;
              come_up(key, id);
              come_up(key + 1, other);
              EXPECT_EQ(chkpt_save(table, id, record_of(6).data(), 96), 13u);
              act_as(0);
              allow_writing(true);
              log_capture log;
              checkpoints_tend();
              EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("takes changes again")));
              EXPECT_TRUE(checkpoints_status().usable);
              EXPECT_THAT(troubled(record_trouble::unsaved), ElementsAre(key));
              EXPECT_EQ(chkpt_save(table, id, record_of(6).data(), 96), 0u);
              EXPECT_EQ(chkpt_save(table, other, record_of(7).data(), 96), 0u);
              EXPECT_THAT(checkpoints_status().troubled, IsEmpty());
              checkpoints_close();
            }),
            0);
  open();
  EXPECT_EQ(saved(key), record_of(6));
  EXPECT_EQ(saved(key + 1), record_of(7));
}

TEST_F(checkpoint_without_store, a_file_that_is_moved_takes_what_is_saved_with_it) {
  open();
  const uint64_t id = create_saved(key, 5);
  const fs::path elsewhere = folder / "elsewhere.db";
  fs::rename(file, elsewhere);
  EXPECT_EQ(chkpt_save(table, id, record_of(6).data(), 96), 116u);
  EXPECT_FALSE(checkpoints_status().usable);
  EXPECT_THAT(checkpoints_status().reason, HasSubstr("moved or removed"));
  chkpt_record record = record_of(0);
  const auto seen =
      lum_linux::checkpoints_look(table, key, std::as_writable_bytes(std::span(record)));
  EXPECT_FALSE(seen.known);
  EXPECT_THAT(seen.reason, HasSubstr("moved or removed"));
  EXPECT_THAT(troubled(record_trouble::unsaved), ElementsAre(key));
  fs::rename(elsewhere, file);
  checkpoints_tend();
  EXPECT_TRUE(checkpoints_status().usable);
  fs::remove(file);
  checkpoints_tend();
  EXPECT_FALSE(checkpoints_status().usable);
}
