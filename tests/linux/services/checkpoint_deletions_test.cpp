// A record that cannot be deleted just now is deleted later, also by the next process.
#include <gmock/gmock.h>

#include "services/checkpoint_fixture.h"
#include "services/fault_vfs.h"
#include "services/log_capture.h"

namespace {

using lum_linux::checkpoints_close;
using lum_linux::checkpoints_status;
using lum_linux::checkpoints_tend;
using lum_linux::record_trouble;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// Above what a change takes in the journal, below anything the store writes.
constexpr rlim_t almost_full = 1024;

class checkpoint_deletions : public checkpoints {
 protected:
  void SetUp() override {
    checkpoints::SetUp();
    open();
    create_saved(key, 5);
    create_saved(8, 8);
    checkpoints_close();
  }

  cerrno remove(uint32_t of_key) {
    uint64_t id = 0;
    const cerrno rc = chkpt_mapkey(table, of_key, &id, 0);
    return rc == 0 ? chkpt_delete(table, id) : rc;
  }
};

}  // namespace

TEST_F(checkpoint_deletions, one_that_fails_is_told_and_done_when_there_is_room) {
  EXPECT_EQ(in_child([this] {
              open();
              limit_files(almost_full);
              EXPECT_NE(remove(key), 0u);
              EXPECT_THAT(troubled(record_trouble::undeleted), ElementsAre(key));
              checkpoints_tend();
              EXPECT_THAT(troubled(record_trouble::undeleted), ElementsAre(key));
              uint64_t id = 0;
              EXPECT_EQ(chkpt_mapkey(table, key, &id, 0), 2u) << "deleted as far as anybody asks";
              limit_files(RLIM_INFINITY);
              checkpoints_tend();
              EXPECT_THAT(checkpoints_status().troubled, IsEmpty());
              EXPECT_EQ(checkpoints_status().entries, 1u);
            }),
            0);
  open();
  EXPECT_EQ(saved(key), record_of(0xEE));
  EXPECT_EQ(saved(8), record_of(8));
}

TEST_F(checkpoint_deletions, one_that_fails_is_done_by_the_next_process) {
  EXPECT_EQ(in_child([this] {
              open();
              limit_files(almost_full);
              EXPECT_NE(remove(key), 0u);
              EXPECT_THAT(checkpoints_status().troubled[0].reason, HasSubstr("noted"));
            }),
            0);
  log_capture log;
  open();
  EXPECT_EQ(saved(key), record_of(0xEE));
  EXPECT_EQ(saved(8), record_of(8));
  EXPECT_THAT(log.lines(), Contains(HasSubstr("record 0x00030007")));
  checkpoints_close();
  open();
  EXPECT_EQ(saved(key), record_of(0xEE));
}

TEST_F(checkpoint_deletions, one_that_was_noted_survives_processes_that_cannot_do_it_either) {
  EXPECT_EQ(in_child([this] {
              open();
              limit_files(almost_full);
              EXPECT_NE(remove(key), 0u);
            }),
            0);
  EXPECT_EQ(in_child([this] {
              limit_files(almost_full);
              open();
              EXPECT_THAT(troubled(record_trouble::undeleted), ElementsAre(key));
              EXPECT_EQ(saved(key), record_of(0xEE));
              EXPECT_EQ(saved(8), record_of(8));
            }),
            0);
  open();
  EXPECT_EQ(saved(key), record_of(0xEE));
}

TEST_F(checkpoint_deletions, one_that_cannot_be_noted_is_told_now_and_at_the_next_start) {
  EXPECT_EQ(in_child([this] {
              open();
              limit_files(0);
              EXPECT_NE(remove(key), 0u);
              ASSERT_THAT(checkpoints_status().troubled, SizeIs(1));
              EXPECT_THAT(checkpoints_status().troubled[0].reason, HasSubstr("come back"));
              log_capture log;
              checkpoints_close();
              EXPECT_THAT(log.lines(), Contains(HasSubstr("come back")));
            }),
            0);
  log_capture log;
  open();
  EXPECT_EQ(saved(key), record_of(5));
  EXPECT_THAT(log.lines(), Contains(HasSubstr("come back")));
  reopen();
  EXPECT_THAT(log.lines(), SizeIs(1)) << "a store that was closed with nothing left is not told of";
}

TEST_F(checkpoint_deletions, one_that_could_not_be_noted_at_first_is_noted_later) {
  EXPECT_EQ(in_child([this] {
              open();
              limit_files(0);
              EXPECT_NE(remove(key), 0u);
              limit_files(almost_full);
              checkpoints_tend();
              EXPECT_THAT(checkpoints_status().troubled[0].reason, HasSubstr("noted"));
            }),
            0);
  open();
  EXPECT_EQ(saved(key), record_of(0xEE));
}

// Trying again must not push the other changes out of the journal.
TEST_F(checkpoint_deletions, one_that_is_tried_often_is_noted_once) {
  EXPECT_EQ(in_child([this] {
              open();
              limit_files(almost_full);
              EXPECT_NE(remove(key), 0u);
              const std::string noted = contents(file.string() + "-changes");
              for (int i = 0; i < 50; ++i) checkpoints_tend();
              EXPECT_TRUE(noted == contents(file.string() + "-changes"));
            }),
            0);
}

TEST_F(checkpoint_deletions, a_record_made_anew_meanwhile_is_a_new_one) {
  EXPECT_EQ(in_child([this] {
              open();
              limit_files(almost_full);
              EXPECT_NE(remove(key), 0u);
              uint64_t id = 0;
              EXPECT_EQ(chkpt_mapkey(table, key, &id, 0), 2u);
              EXPECT_NE(chkpt_create(table, key, &id), 0u);
              limit_files(RLIM_INFINITY);
              ASSERT_EQ(chkpt_create(table, key, &id), 0u);
              EXPECT_THAT(checkpoints_status().troubled, IsEmpty());
              chkpt_record record;
              EXPECT_EQ(get(id, record), 61u);
              EXPECT_EQ(chkpt_save(table, id, record_of(6).data(), 96), 0u);
            }),
            0);
  open();
  EXPECT_EQ(saved(key), record_of(6));
}

TEST_F(checkpoint_deletions, one_without_a_store_is_done_when_there_is_one) {
  {
    const fault_vfs faulty([](std::string_view, sqlite3_int64) { return SQLITE_IOERR_READ; });
    open();
    ASSERT_FALSE(checkpoints_status().open);
    EXPECT_NE(remove(key), 0u);
    EXPECT_THAT(troubled(record_trouble::undeleted), ElementsAre(key));
  }
  checkpoints_tend();
  ASSERT_TRUE(checkpoints_status().open);
  EXPECT_THAT(checkpoints_status().troubled, IsEmpty());
  EXPECT_EQ(saved(key), record_of(0xEE));
  EXPECT_EQ(saved(8), record_of(8));
}

// Its settings do not come back, so there is nothing to tell.
TEST_F(checkpoint_deletions, one_of_a_record_without_data_is_not_missed) {
  EXPECT_EQ(in_child([this] {
              open();
              uint64_t id = 0;
              ASSERT_EQ(chkpt_create(table, 3, &id), 0u);
              limit_files(almost_full);
              EXPECT_NE(chkpt_delete(table, id), 0u);
              EXPECT_THAT(checkpoints_status().troubled, IsEmpty());
            }),
            0);
}
