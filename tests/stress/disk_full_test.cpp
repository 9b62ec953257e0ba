// A disk that fills up under a storm of configuration changes: what was saved stays saved, and what
// could not be saved is reported.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <memory>

#include "change_ledger.h"
#include "driver_process.h"
#include "settings.h"

namespace {

using namespace std::chrono_literals;
using stress::change_ledger;
using stress::crash_event;
using stress::driver_process;
using stress::driver_task;

constexpr auto bound = 60s;

// Follows the driver until `enough`; false when it ended or fell silent before.
bool follow(driver_process &driver, change_ledger &ledger, const std::function<bool()> &enough) {
  while (!enough()) {
    const auto record = driver.next(bound);
    if (!record) return false;
    if (record->event != crash_event::ready) ledger.note(*record);
  }
  return true;
}

bool follow_until_ready(driver_process &driver, change_ledger &ledger) {
  while (const auto record = driver.next(bound)) {
    if (record->event == crash_event::ready) return true;
    ledger.note(*record);
  }
  return false;
}

class full_disk : public testing::Test {
 protected:
  void use_folder(const std::filesystem::path &folder) { folder_ = folder; }

  bool saved(driver_process &driver, uint64_t changes) {
    const uint64_t goal = ledger_.counts().acknowledged + changes;
    return follow(driver, ledger_, [&] { return ledger_.counts().acknowledged >= goal; });
  }
  bool refused(driver_process &driver, uint64_t changes) {
    const uint64_t goal = ledger_.counts().refused + changes;
    return follow(driver, ledger_, [&] { return ledger_.counts().refused >= goal; });
  }

  // Changes are saved, refused while the disk is full, saved again once it is not, and refused
  // again until the kill.
  void storm(const std::function<void(driver_process &)> &fill,
             const std::function<void(driver_process &)> &empty) {
    driver_process driver(folder_, 1, driver_task::storm);
    ASSERT_TRUE(follow_until_ready(driver, ledger_));
    driver.go();
    ASSERT_TRUE(saved(driver, 200));
    fill(driver);
    ASSERT_TRUE(refused(driver, 50)) << "a full disk is not reported";
    empty(driver);
    ASSERT_TRUE(saved(driver, 200)) << "nothing is saved any more after the disk was full";
    fill(driver);
    ASSERT_TRUE(refused(driver, 50));
    ASSERT_TRUE(driver.kill_now());
    ASSERT_TRUE(follow(driver, ledger_, [&] { return false; }) || driver.ended());
  }

  // Everything acknowledged is there after a restart, and in the modules after the update.
  void restart(uint64_t max_file_size) {
    driver_process driver(folder_, 2, driver_task::report, max_file_size);
    ASSERT_TRUE(follow_until_ready(driver, ledger_));
    EXPECT_EQ(driver.wait(), 0);
    ledger_.judge_modules(folder_);
  }

  void report() {
    const stress::ledger_counts &counts = ledger_.counts();
    std::printf(
        "%lu changes asked for, %lu acknowledged, %lu refused; %lu sub-ports judged: "
        "%lu lost, %lu torn, %lu not in the module\n",
        static_cast<unsigned long>(counts.asked), static_cast<unsigned long>(counts.acknowledged),
        static_cast<unsigned long>(counts.refused), static_cast<unsigned long>(counts.recovered),
        static_cast<unsigned long>(counts.lost), static_cast<unsigned long>(counts.torn),
        static_cast<unsigned long>(counts.not_in_module));
    for (const std::string &complaint : ledger_.complaints()) ADD_FAILURE() << complaint;
    EXPECT_EQ(counts.lost, 0u);
    EXPECT_EQ(counts.torn, 0u);
    EXPECT_EQ(counts.not_in_module, 0u);
  }

  std::filesystem::path folder_;
  change_ledger ledger_;
};

// A small file system of this process's own, where it may mount one.
class small_disk {
 public:
  explicit small_disk(const std::filesystem::path &place) : place_(place) {
    if (unshare(CLONE_NEWNS) != 0) return;
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
    mounted_ = mount("tmpfs", place.c_str(), "tmpfs", 0, "size=16m") == 0;
  }
  ~small_disk() {
    if (mounted_) umount2(place_.c_str(), MNT_DETACH);
  }
  small_disk(const small_disk &) = delete;
  small_disk &operator=(const small_disk &) = delete;

  bool mounted() const { return mounted_; }
  void fill() const {
    const int fd = open(filler().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const char block[4096] = {};
    while (fd >= 0 && write(fd, block, sizeof block) > 0) {
    }
    close(fd);
  }
  void empty() const { unlink(filler().c_str()); }

 private:
  std::string filler() const { return place_ / "filler"; }
  std::filesystem::path place_;
  bool mounted_ = false;
};

}  // namespace

TEST_F(full_disk, files_that_may_not_grow_lose_nothing_and_are_reported) {
  constexpr uint64_t small = 1024;  // above a module's file, below anything the store writes
  const stress::work_folder folder(stress::folder_place::disk);
  use_folder(folder.path());
  ASSERT_NO_FATAL_FAILURE(storm([](driver_process &driver) { driver.limit_files(small); },
                                [](driver_process &driver) { driver.limit_files(0); }));
  ASSERT_NO_FATAL_FAILURE(restart(small));
  ASSERT_NO_FATAL_FAILURE(restart(0));
  report();
}

TEST_F(full_disk, a_full_file_system_loses_nothing_and_is_reported) {
  const stress::work_folder folder(stress::folder_place::disk);
  const small_disk disk(folder.path());
  if (!disk.mounted()) GTEST_SKIP() << "this user may not mount a file system";
  use_folder(folder.path());
  ASSERT_NO_FATAL_FAILURE(
      storm([&](driver_process &) { disk.fill(); }, [&](driver_process &) { disk.empty(); }));
  ASSERT_NO_FATAL_FAILURE(restart(0));
  disk.empty();
  ASSERT_NO_FATAL_FAILURE(restart(0));
  report();
}
