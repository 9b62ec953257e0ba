// Errors met while a store is opened: they pass, and must not cost the store.
#include <algorithm>

#include "services/checkpoint_fixture.h"
#include "services/fault_vfs.h"
#include "services/log_capture.h"

namespace {

namespace fs = std::filesystem;
using lum_linux::checkpoints_close;
using lum_linux::checkpoints_status;

constexpr int page = 4096;

// The store has 200 records, of which one is looked for afterwards.
class checkpoint_errors : public checkpoints {
 protected:
  void SetUp() override {
    checkpoints::SetUp();
    open();
    for (uint32_t k = 1; k <= 200; ++k) create_saved(k, static_cast<uint8_t>(k));
    checkpoints_close();
  }

  size_t set_aside_files() const {
    const fs::directory_iterator all(file.parent_path());
    return static_cast<size_t>(std::count_if(begin(all), end(all), [](const auto &entry) {
      return entry.path().string().find("set-aside") != std::string::npos;
    }));
  }

  // Opens with faults, and then without: the records are still there.
  void expect_kept_after(fault_vfs::fault fault) {
    {
      const fault_vfs faulty(std::move(fault));
      if (init() == 0) add_table();
      EXPECT_EQ(set_aside_files(), 0u) << checkpoints_status().set_aside_reason;
      checkpoints_close();
    }
    open();
    EXPECT_EQ(set_aside_files(), 0u) << checkpoints_status().set_aside_reason;
    EXPECT_EQ(restart, 1u);
    EXPECT_EQ(saved(77), record_of(77));
  }

  static bool is_store(std::string_view name) { return name.ends_with("checkpoints.db"); }
};

}  // namespace

TEST_F(checkpoint_errors, a_read_error_that_the_check_meets_keeps_the_store) {
  for (const int at : {2, 3, 5, 9}) {
    SCOPED_TRACE(at);
    expect_kept_after([at](std::string_view name, sqlite3_int64 offset) {
      return is_store(name) && offset == at * page ? SQLITE_IOERR_READ : SQLITE_OK;
    });
  }
}

TEST_F(checkpoint_errors, an_error_of_any_single_read_keeps_the_store) {
  for (const int code : {SQLITE_IOERR_READ, SQLITE_NOMEM, SQLITE_IOERR_NOMEM}) {
    for (int fails = 0; fails < 40; ++fails) {
      SCOPED_TRACE("code " + std::to_string(code) + " read " + std::to_string(fails));
      int reads = 0;
      expect_kept_after([&](std::string_view name, sqlite3_int64) {
        return is_store(name) && reads++ == fails ? code : SQLITE_OK;
      });
      checkpoints_close();
    }
  }
}

TEST_F(checkpoint_errors, errors_of_every_read_after_some_keep_the_store) {
  for (int good = 0; good < 40; ++good) {
    SCOPED_TRACE(good);
    int reads = 0;
    expect_kept_after([&](std::string_view name, sqlite3_int64) {
      return is_store(name) && reads++ >= good ? SQLITE_IOERR_READ : SQLITE_OK;
    });
    checkpoints_close();
  }
}

// What says that the file is damaged and is not met again costs nothing either.
TEST_F(checkpoint_errors, damage_that_a_second_look_does_not_find_keeps_the_store) {
  for (int fails = 0; fails < 20; ++fails) {
    SCOPED_TRACE(fails);
    int reads = 0;
    expect_kept_after([&](std::string_view name, sqlite3_int64) {
      return is_store(name) && reads++ == fails ? SQLITE_CORRUPT : SQLITE_OK;
    });
    checkpoints_close();
  }
}
