// The platform as a driver in C sees it.
#include <gmock/gmock.h>

#include <cstring>
#include <thread>

#include "lum_linux.h"
#include "small_node.h"
#include "test_folder.h"

namespace {

using small_node::port;
using testing::HasSubstr;

const std::string two_slots =
    small_node::with(port(1, "name = 'west'\nmodule = '1.eeprom'") + port(2, "module = '2.eeprom'"),
                     "name = 'node'\nrack = 2") +
    "[[slot]]\nnumber = 5\n[[slot.instance]]\nnumber = 3\n";
constexpr uint32_t west = 2u << 24 | 1u << 16 | 1u;

class CApi : public testing::Test {
 protected:
  ~CApi() override { lum_linux_stop(); }

  int start(const std::string &text = two_slots) {
    return lum_linux_start(folder.write("node.toml", text).c_str(), error, sizeof error);
  }

  test_folder folder;
  char error[512] = "untouched";
};

TEST_F(CApi, GivesWhatTheLibraryIsToBeToldOfTheNode) {
  ASSERT_EQ(start(), 0) << error;
  EXPECT_STREQ(error, "");
  EXPECT_STREQ(lum_linux_node_name(), "node");
  EXPECT_NE(lum_linux_event_manager(), 0u);
  ASSERT_EQ(lum_linux_slot_count(), 2u);
  lum_linux_slot_info slot{};
  ASSERT_EQ(lum_linux_slot(0, &slot), 0);
  EXPECT_EQ(slot.rack, 2u);
  EXPECT_EQ(slot.slot, 1u);
  EXPECT_EQ(slot.instance, 0u);
  EXPECT_NE(slot.props.used, 0u);
  EXPECT_EQ(slot.props.capacity, 4u);
  ASSERT_EQ(slot.port_count, 2u);
  EXPECT_EQ(slot.ports[0].rsip, west);
  EXPECT_EQ(slot.ports[0].port_index, 1u);
  EXPECT_EQ(slot.ports[0].port_handle, 11u);
  EXPECT_EQ(slot.ports[0].context, nullptr);
  EXPECT_EQ(slot.ports[1].rsip, west + 1);
  ASSERT_EQ(lum_linux_slot(1, &slot), 0);
  EXPECT_EQ(slot.slot, 5u);
  EXPECT_EQ(slot.instance, 3u);
  EXPECT_EQ(slot.port_count, 0u);
  EXPECT_EQ(lum_linux_slot(2, &slot), 22);
  EXPECT_EQ(lum_linux_slot(0, nullptr), 22);
  EXPECT_STREQ(lum_linux_port_name(west), "west");
  EXPECT_STREQ(lum_linux_port_name(west + 1), "2/1/0/2");
  EXPECT_EQ(lum_linux_port_name(1), nullptr);
}

TEST_F(CApi, WaitsForControllers) {
  ASSERT_EQ(start(), 0) << error;
  EXPECT_EQ(lum_linux_wait_created(0, 0), 0);
  EXPECT_EQ(lum_linux_wait_created(1, 5), 110);
  std::thread waiter([] { EXPECT_EQ(lum_linux_wait_created(1, 5000), 0); });
  const uint32_t sub_port = 0, handle = 9;
  EXPECT_EQ(lum_linux_callbacks()->ctrl_op_notify(1, 1, &west, &sub_port, &handle), 0u);
  waiter.join();
}

TEST_F(CApi, SetsTheFirmwareUpgradeFlag) {
  ASSERT_EQ(start(), 0) << error;
  EXPECT_EQ(lum_linux_set_fw_upgrade(west, 1), 0);
  uint32_t status = 0;
  EXPECT_EQ(lum_linux_callbacks()->fw_upgrade_status(west, &status), 0u);
  EXPECT_EQ(status, 1u);
  EXPECT_EQ(lum_linux_set_fw_upgrade(1, 1), 22);
}

TEST_F(CApi, RefusesAWrongDescriptionWithEveryProblemAndStartsNothing) {
  EXPECT_EQ(start("name = 'n'\nrack = 300\n"), 22);
  const std::string file = (folder.path() / "node.toml").string();
  EXPECT_THAT(error, HasSubstr(file + ":2: 'rack' is 300, expected an integer from 0 to 255\n"));
  EXPECT_THAT(error, HasSubstr(file + ":1: missing key 'state_directory'"));
  EXPECT_EQ(lum_linux_slot_count(), 0u);
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "state"));
}

TEST_F(CApi, CutsTheErrorToItsBuffer) {
  const auto file = folder.write("node.toml", "rack = 300\n");
  char small[8];
  std::memset(small, 'x', sizeof small);
  EXPECT_EQ(lum_linux_start(file.c_str(), small, 4), 22);
  EXPECT_EQ(small[3], '\0');
  EXPECT_EQ(small[4], 'x');
  EXPECT_EQ(lum_linux_start(file.c_str(), nullptr, 0), 22);
  EXPECT_EQ(lum_linux_start(nullptr, error, sizeof error), 22);
  EXPECT_STREQ(error, "no node description was named");
}

TEST_F(CApi, SaysWhatCouldNotBeStarted) {
  folder.write("bad.toml", "vendor = \n");
  const std::string text = small_node::with(port(1, "backend = 'simulated'\nmodule = 'bad.toml'"));
  EXPECT_EQ(start(text), 5);
  EXPECT_THAT(error, HasSubstr("bad.toml:1: "));
  EXPECT_EQ(start(), 0) << error;
}

TEST_F(CApi, StartsOnceAtATime) {
  ASSERT_EQ(start(), 0) << error;
  EXPECT_EQ(start(), 16);
  EXPECT_STREQ(error, "the platform runs already");
  EXPECT_EQ(lum_linux_stop(), 0);
  EXPECT_EQ(start(), 0) << error;
}

TEST_F(CApi, AnswersPlainlyWhenNothingRuns) {
  EXPECT_EQ(lum_linux_event_manager(), 0u);
  EXPECT_STREQ(lum_linux_node_name(), "");
  EXPECT_EQ(lum_linux_slot_count(), 0u);
  lum_linux_slot_info slot{};
  EXPECT_EQ(lum_linux_slot(0, &slot), 22);
  EXPECT_EQ(lum_linux_port_name(west), nullptr);
  EXPECT_EQ(lum_linux_wait_created(0, 0), 19);
  EXPECT_EQ(lum_linux_set_fw_upgrade(west, 1), 19);
  EXPECT_EQ(lum_linux_stop(), 19);
  ASSERT_NE(lum_linux_callbacks(), nullptr);
  uint8_t value = 0;
  EXPECT_EQ(lum_linux_callbacks()->i2c_read_byte(1, 0, 1, 0, 0, &value), 19u);
}

}  // namespace
