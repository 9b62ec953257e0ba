// The write-ahead log is taken away, replaced or cut short while the store is open.
#include <gmock/gmock.h>

#include "services/checkpoint_fixture.h"
#include "services/log_capture.h"

namespace {

namespace fs = std::filesystem;
using lum_linux::checkpoints_close;
using lum_linux::checkpoints_status;
using lum_linux::checkpoints_tend;
using lum_linux::record_trouble;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class checkpoint_log : public checkpoints {
 protected:
  fs::path wal() const { return file.string() + "-wal"; }
  cerrno save(uint64_t id, uint8_t fill) {
    const chkpt_record record = record_of(fill);
    return chkpt_save(table, id, record.data(), record.size());
  }
};

}  // namespace

TEST_F(checkpoint_log, what_is_saved_after_it_was_removed_survives_a_kill) {
  EXPECT_EQ(in_child([this] {
              open();
              const uint64_t id = create_saved(1, 1);
              create_saved(2, 2);
              fs::remove(wal());
              EXPECT_EQ(save(id, 5), 0u);
              create_saved(3, 3);
            }),
            0);
  log_capture log;
  open();
  EXPECT_EQ(saved(1), record_of(5));
  EXPECT_EQ(saved(2), record_of(2));
  EXPECT_EQ(saved(3), record_of(3));
  EXPECT_THAT(troubled(record_trouble::lost), IsEmpty());
}

TEST_F(checkpoint_log, what_it_held_when_it_was_removed_survives_a_kill_once_that_was_noticed) {
  EXPECT_EQ(in_child([this] {
              open();
              create_saved(1, 1);
              fs::remove(wal());
              log_capture log;
              checkpoints_tend();
              EXPECT_TRUE(checkpoints_status().usable) << checkpoints_status().reason;
              EXPECT_THAT(log.lines(), Contains(HasSubstr("write-ahead log was taken away")));
              EXPECT_TRUE(fs::exists(wal()));
              fs::remove(wal());
            }),
            0);
  open();
  EXPECT_EQ(saved(1), record_of(1));
}

// SQLite would play back what the copy holds over what is newer.
TEST_F(checkpoint_log, an_older_copy_in_its_place_brings_nothing_back) {
  EXPECT_EQ(in_child([this] {
              open();
              const uint64_t id = create_saved(1, 1);
              fs::copy_file(wal(), folder / "copy");
              EXPECT_EQ(save(id, 2), 0u);
              fs::rename(folder / "copy", wal());
              EXPECT_EQ(save(id, 3), 0u);
            }),
            0);
  open();
  EXPECT_EQ(saved(1), record_of(3));
}

TEST_F(checkpoint_log, a_record_is_deleted_although_it_was_moved) {
  EXPECT_EQ(in_child([this] {
              open();
              const uint64_t id = create_saved(1, 1);
              checkpoints_tend();
              fs::rename(wal(), folder / "elsewhere");
              EXPECT_EQ(chkpt_delete(table, id), 0u);
            }),
            0);
  log_capture log;
  open();
  EXPECT_EQ(saved(1), record_of(0xEE));
  EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("record 0x"))));
}

// What is missing cannot be had back; what comes after it would be lost with it.
TEST_F(checkpoint_log, nothing_is_kept_once_it_was_cut_short) {
  EXPECT_EQ(in_child([this] {
              open();
              create_saved(1, 1);
              checkpoints_close();
              open();
              uint64_t id = 0;
              ASSERT_EQ(chkpt_mapkey(table, 1, &id, 0), 0u);
              ASSERT_EQ(save(id, 5), 0u);
              fs::resize_file(wal(), 100);
              EXPECT_EQ(save(id, 6), 116u);
              EXPECT_FALSE(checkpoints_status().usable);
              EXPECT_THAT(checkpoints_status().reason, HasSubstr("was cut short"));
              EXPECT_THAT(troubled(record_trouble::unsaved), ElementsAre(1));
              checkpoints_tend();
              EXPECT_FALSE(checkpoints_status().usable);
              uint64_t other = 0;
              EXPECT_EQ(chkpt_create(table, 2, &other), 116u);
              checkpoints_close();
            }),
            0);
  log_capture log;
  open();
  EXPECT_EQ(checkpoints_status().set_aside, "");
  EXPECT_THAT(troubled(record_trouble::lost), ElementsAre(1));
  EXPECT_EQ(saved(1), record_of(1));
}

TEST_F(checkpoint_log, cut_short_after_it_was_merged_costs_nothing) {
  EXPECT_EQ(in_child([this] {
              open();
              const uint64_t id = create_saved(1, 1);
              create_saved(2, 2);
              checkpoints_tend();
              fs::resize_file(wal(), 5000);
              EXPECT_EQ(save(id, 5), 0u);
              EXPECT_TRUE(checkpoints_status().usable) << checkpoints_status().reason;
            }),
            0);
  open();
  EXPECT_EQ(saved(1), record_of(5));
  EXPECT_EQ(saved(2), record_of(2));
  EXPECT_THAT(troubled(record_trouble::lost), IsEmpty());
}

TEST_F(checkpoint_log, removed_on_a_full_disk_is_told_until_there_is_room) {
  EXPECT_EQ(in_child([this] {
              open();
              const uint64_t id = create_saved(1, 1);
              create_saved(2, 2);
              fs::remove(wal());
              limit_files(0);
              EXPECT_EQ(save(id, 5), 116u);
              EXPECT_FALSE(checkpoints_status().usable);
              EXPECT_THAT(checkpoints_status().reason, HasSubstr("cannot be merged"));
              EXPECT_EQ(saved(1), record_of(1));
              limit_files(RLIM_INFINITY);
              checkpoints_tend();
              EXPECT_TRUE(checkpoints_status().usable) << checkpoints_status().reason;
              EXPECT_EQ(save(id, 6), 0u);
              EXPECT_THAT(checkpoints_status().troubled, IsEmpty());
            }),
            0);
  open();
  EXPECT_EQ(saved(1), record_of(6));
  EXPECT_EQ(saved(2), record_of(2));
}
