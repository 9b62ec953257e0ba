// Port LEDs in the shape of the LED class.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "lum_linux/leds.h"
#include "modules/hardware_helpers.h"

namespace {

using namespace lum_linux;
using namespace hardware_test;

constexpr uint32_t dark_port = 99;  // has no LED

class Leds : public testing::Test {
 protected:
  test_folder folder;
  std::filesystem::path root = folder / "leds";
  std::filesystem::path green = root / "port3:green:status";
  std::filesystem::path red = root / "port3:red:fault";
  std::unique_ptr<leds> all = open();

  std::unique_ptr<leds> open() {
    return std::make_unique<leds>(
        root, std::map<uint32_t, std::string>{{rsip, "port3"}, {dark_port, ""}});
  }
  uint32_t state(cerrno expected = 0) {
    uint32_t result = 77;
    EXPECT_EQ(all->get_state(rsip, &result), expected);
    return result;
  }
  // Brightness of the green and the red one.
  std::string brightness() { return contents(green / "brightness") + contents(red / "brightness"); }
};

TEST_F(Leds, AreMadeOnDemandAndDark) {
  EXPECT_EQ(brightness(), "0\n0\n");
  EXPECT_EQ(contents(green / "max_brightness"), "1\n");
  EXPECT_EQ(state(), 0u);
}

TEST_F(Leds, StatesLightGreenAndRed) {
  const std::map<uint32_t, std::string> expected = {
      {1, "1\n0\n"}, {3, "0\n1\n"}, {2, "1\n1\n"}, {0, "0\n0\n"}};
  for (const auto &[wanted, shown] : expected) {
    EXPECT_EQ(all->set_state(rsip, wanted), 0u);
    EXPECT_EQ(brightness(), shown);
    EXPECT_EQ(state(), wanted);
  }
}

TEST_F(Leds, StateIsWhatIsThereNotWhatWasSet) {
  EXPECT_EQ(all->set_state(rsip, 1), 0u);
  write_file(red / "brightness", "1\n");
  write_file(green / "brightness", "0\n");
  EXPECT_EQ(state(), 3u);
}

// The file that is read in each cycle stays open; whatever has come in its place is read all the
// same.
TEST_F(Leds, AnotherFileInThePlaceOfOneIsRead) {
  EXPECT_EQ(state(), 0u);
  write_file(root / "another", "1\n");
  std::filesystem::rename(root / "another", green / "brightness");
  EXPECT_EQ(state(), 1u);
  std::filesystem::rename(green, root / "put away");
  EXPECT_EQ(state(ENOENT), 77u);
  std::filesystem::create_directory(green);
  write_file(green / "brightness", "0\n");
  write_file(root / "put away" / "brightness", "1\n");
  EXPECT_EQ(state(), 0u);
}

TEST_F(Leds, ALookSeesAnotherFileAtOnceAndAnotherFolderWithinAMinuteOfLooks) {
  all->look();
  write_file(root / "another", "1\n");
  std::filesystem::rename(root / "another", green / "brightness");
  all->look();
  EXPECT_EQ(all->status(rsip)->state, 1u);
  std::filesystem::rename(green, root / "put away");
  std::filesystem::create_directory(green);
  write_file(green / "brightness", "0\n");
  for (int looks = 0; looks < 12; ++looks) all->look();
  EXPECT_EQ(all->status(rsip)->state, 0u);
}

TEST_F(Leds, SurviveARestart) {
  EXPECT_EQ(all->set_state(rsip, 3), 0u);
  all = open();
  EXPECT_EQ(state(), 3u);
}

TEST_F(Leds, GreatestBrightnessIsUsed) {
  write_file(green / "max_brightness", "255\n");
  EXPECT_EQ(all->set_state(rsip, 1), 0u);
  EXPECT_EQ(brightness(), "255\n0\n");
  EXPECT_EQ(all->set_state(rsip, 0), 0u);
  EXPECT_EQ(brightness(), "0\n0\n");
}

TEST_F(Leds, WhatIsRightIsNotWrittenAgain) {
  EXPECT_EQ(all->set_state(rsip, 1), 0u);
  struct stat before = {};
  struct stat after = {};
  ASSERT_EQ(::stat((green / "brightness").c_str(), &before), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(all->set_state(rsip, 1), 0u);
  ASSERT_EQ(::stat((green / "brightness").c_str(), &after), 0);
  EXPECT_EQ(before.st_mtim.tv_sec, after.st_mtim.tv_sec);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
}

TEST_F(Leds, TriggerIsTakenAway) {
  write_file(green / "trigger", "none [heartbeat] timer\n");
  EXPECT_EQ(all->set_state(rsip, 1), 0u);
  EXPECT_EQ(contents(green / "trigger"), "none\n");
}

TEST_F(Leds, NoTriggerIsLeftAlone) {
  write_file(green / "trigger", "[none] heartbeat timer\n");
  EXPECT_EQ(all->set_state(rsip, 1), 0u);
  EXPECT_EQ(contents(green / "trigger"), "[none] heartbeat timer\n");
}

TEST_F(Leds, MissingLedIsReportedAndTheOtherOneStillSet) {
  std::filesystem::remove_all(green);
  EXPECT_EQ(all->set_state(rsip, 3), static_cast<cerrno>(ENOENT));
  EXPECT_EQ(contents(red / "brightness"), "1\n");
  EXPECT_EQ(state(ENOENT), 77u);
}

TEST_F(Leds, UnwritableLedIsReported) {
  std::filesystem::remove(green / "brightness");
  std::filesystem::create_directory(green / "brightness");
  EXPECT_NE(all->set_state(rsip, 1), 0u);
  EXPECT_NE(all->get_state(rsip, nullptr), 0u);
  EXPECT_EQ(state(EIO), 77u);
}

TEST_F(Leds, ReadOnlyLedIsReported) {
  ::chmod((green / "brightness").c_str(), 0444);
  const without_root ordinary(folder);
  if (ordinary.is_root()) GTEST_SKIP() << "root writes everything";
  EXPECT_EQ(all->set_state(rsip, 1), static_cast<cerrno>(EACCES));
}

TEST_F(Leds, NonsenseInAnLedIsAnErrorUntilItIsSet) {
  write_file(green / "brightness", "bright\n");
  EXPECT_EQ(state(EIO), 77u);
  write_file(green / "brightness", "");
  EXPECT_EQ(state(EIO), 77u);
  EXPECT_EQ(all->set_state(rsip, 1), 0u);
  EXPECT_EQ(state(), 1u);
}

TEST_F(Leds, PortWithoutAnLedIsSetButNotRead) {
  uint32_t read = 77;
  EXPECT_EQ(all->set_state(dark_port, 3), 0u);
  EXPECT_EQ(all->get_state(dark_port, &read), static_cast<cerrno>(ENOENT));
  EXPECT_EQ(read, 77u);
}

TEST_F(Leds, UnknownPortsAndStatesAreBadArguments) {
  uint32_t read = 77;
  EXPECT_EQ(all->set_state(5, 1), 22u);
  EXPECT_EQ(all->get_state(5, &read), 22u);
  EXPECT_EQ(all->set_state(rsip, 4), 22u);
  EXPECT_EQ(all->set_state(rsip, 0xFFFFFFFF), 22u);
  EXPECT_EQ(all->get_state(rsip, nullptr), 22u);
  EXPECT_EQ(brightness(), "0\n0\n");
}

TEST(LedsElsewhere, FolderThatCannotBeMadeIsReportedByTheCalls) {
  leds nowhere("/dev/null/leds", {{rsip, "port3"}});
  EXPECT_EQ(nowhere.set_state(rsip, 1), static_cast<cerrno>(ENOTDIR));
}

TEST(LedsElsewhere, NothingIsMadeInTheLedClass) {
  if (!std::filesystem::is_directory("/sys/class")) GTEST_SKIP() << "no sysfs here";
  leds real("/sys/class", {{rsip, "lum-test"}});
  EXPECT_EQ(real.set_state(rsip, 1), static_cast<cerrno>(ENOENT));
}

TEST_F(Leds, TroubleIsKeptUntilTheStateCanBeSet) {
  EXPECT_FALSE(all->trouble(rsip));
  EXPECT_FALSE(all->trouble(dark_port));
  std::filesystem::remove(red / "brightness");
  std::filesystem::create_directory(red / "brightness");
  EXPECT_NE(all->set_state(rsip, 3), 0u);
  const auto trouble = all->trouble(rsip);
  ASSERT_TRUE(trouble);
  EXPECT_EQ(trouble->led, red);
  EXPECT_NE(trouble->code, 0u);
  EXPECT_EQ(trouble->wanted, 3u);
  all->look();
  EXPECT_TRUE(all->trouble(rsip));
  std::filesystem::remove(red / "brightness");
  write_file(red / "brightness", "0\n");
  all->look();
  EXPECT_FALSE(all->trouble(rsip));
  EXPECT_EQ(state(), 3u);
}

TEST_F(Leds, StatusIsAsSeenOrSetLast) {
  EXPECT_FALSE(all->status(dark_port));
  EXPECT_EQ(all->status(rsip)->state, 0u);
  EXPECT_EQ(all->set_state(rsip, 1), 0u);
  EXPECT_EQ(all->status(rsip)->state, 1u);
  write_file(red / "brightness", "1\n");
  EXPECT_EQ(all->status(rsip)->state, 1u) << "touches no file";
  all->look();
  EXPECT_EQ(all->status(rsip)->state, 2u);
  std::filesystem::remove(green / "brightness");
  all->look();
  EXPECT_FALSE(all->status(rsip)->state);
  EXPECT_EQ(all->trouble(rsip)->led, green);
}

TEST(LedsElsewhere, WhatCannotBeMadeIsTroubleFromTheStart) {
  const leds nowhere("/dev/null/leds", {{rsip, "port3"}});
  const auto trouble = nowhere.trouble(rsip);
  ASSERT_TRUE(trouble);
  EXPECT_EQ(trouble->code, static_cast<cerrno>(ENOTDIR));
  EXPECT_FALSE(trouble->wanted);
}

}  // namespace
