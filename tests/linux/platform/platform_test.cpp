// The platform object: what it starts, what its callbacks reach, and how it stops.
#include "lum_linux/platform.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "chkpt.h"
#include "interface_manager/im_harness.h"
#include "lum_linux/leds.h"
#include "lum_linux/modules.h"
#include "lum_linux/services.h"
#include "lum_linux/stores.h"
#include "small_node.h"
#include "test_folder.h"

namespace lum_linux {
namespace {

using small_node::port;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr uint32_t first_port = make_rsip(0, 1, 0, 1);
constexpr uint32_t second_port = make_rsip(0, 1, 0, 2);

const std::string two_ports = small_node::with(port(1, "module = '1.eeprom'\nled = 'port1'") +
                                               port(2, "module = '2.eeprom'"));

class Platform : public testing::Test {
 protected:
  Platform() { folder.write("1.eeprom", std::string(5 * 128, '\x5A')); }

  node_description node(const std::string &text = two_ports) {
    return small_node::described(text, folder);
  }
  std::unique_ptr<platform> start() {
    std::string error;
    auto started = platform::start(node(), error);
    EXPECT_TRUE(started) << error;
    return started;
  }
  // As the library tells of finished batches.
  static cerrno tell(const platform &on, uint32_t operation, std::vector<uint32_t> rsips,
                     std::vector<uint32_t> sub_ports, std::vector<uint32_t> handles) {
    return on.callbacks().ctrl_op_notify(operation, static_cast<uint32_t>(handles.size()),
                                         rsips.data(), sub_ports.data(), handles.data());
  }

  test_folder folder;
};

auto is_event(uint32_t rsip, uint32_t sub_port, uint32_t handle) {
  return AllOf(Field(&controller_event::rsip, rsip), Field(&controller_event::sub_port, sub_port),
               Field(&controller_event::ifhandle, handle));
}

TEST_F(Platform, MakesItsFolders) {
  const auto running = start();
  for (const char *name : {"state", "traces", "leds", "run"}) {
    EXPECT_TRUE(std::filesystem::is_directory(folder.path() / name)) << name;
  }
}

TEST_F(Platform, HoldsWhatItStarted) {
  const auto running = start();
  EXPECT_EQ(running->node().name, "node");
  EXPECT_NE(running->evm(), 0u);
  EXPECT_THAT(running->im().controllers(), IsEmpty());
  EXPECT_THAT(running->modules().ports(), ElementsAre(first_port, second_port));
  EXPECT_TRUE(running->modules().present(first_port));
  EXPECT_FALSE(running->modules().present(second_port));
  uint32_t state = 9;
  EXPECT_EQ(running->leds().get_state(first_port, &state), 0u);
  EXPECT_EQ(state, 0u);
  EXPECT_EQ(checkpoints_status().file, folder.path() / "state/checkpoints.db");
}

TEST_F(Platform, FillsEverySlotButTheReservedOnes) {
  const auto running = start();
  const lum_platform_cbs &table = running->callbacks();
  EXPECT_TRUE(table.im_req_by_name && table.im_update_req_by_ifhandle && table.ctrl_op_notify &&
              table.ctrl_update_notify && table.ifname_from_ifh && table.led_get_state &&
              table.led_set_state && table.fw_upgrade_status && table.i2c_read_byte &&
              table.i2c_read_block && table.i2c_write_byte);
  EXPECT_FALSE(table.reserved_12 || table.reserved_13);
}

TEST_F(Platform, ReachesModulesThroughTheCallbacks) {
  const auto running = start();
  const lum_platform_cbs &table = running->callbacks();
  uint8_t value = 0;
  EXPECT_EQ(table.i2c_read_byte(1, 0, 1, 0, 10, &value), 0u);
  EXPECT_EQ(value, 0x5A);
  EXPECT_EQ(table.i2c_write_byte(1, 0, 1, 0, 10, 0x11), 0u);
  uint8_t block[3] = {};
  EXPECT_EQ(table.i2c_read_block(1, 0, 1, 0, 9, 3, block), 0u);
  EXPECT_THAT(block, ElementsAre(0x5A, 0x11, 0x5A));
  EXPECT_EQ(table.i2c_read_byte(1, 0, 2, 0, 10, &value), module_absent);
  EXPECT_EQ(table.i2c_read_byte(9, 0, 1, 0, 10, &value), 22u);
}

TEST_F(Platform, ReachesLedsThroughTheCallbacks) {
  const auto running = start();
  const lum_platform_cbs &table = running->callbacks();
  EXPECT_EQ(table.led_set_state(first_port, 0, 3), 0u);
  uint32_t state = 0;
  EXPECT_EQ(table.led_get_state(first_port, 0, &state), 0u);
  EXPECT_EQ(state, 3u);
  EXPECT_EQ(table.led_get_state(first_port, 0, nullptr), 22u);
}

TEST_F(Platform, ReachesTheInterfaceManagerThroughTheCallbacks) {
  const auto running = start();
  const lum_platform_cbs &table = running->callbacks();
  const char *names[] = {"Ots0_1_0_1_0"};
  const std::vector<uint8_t> create(LUM_CREATE_ELEMENT_SIZE);
  const auto ignore = [](imca_reply_info_type *, void *) {};
  EXPECT_EQ(table.im_req_by_name(names, 188, create.data(), 1, LUM_IM_CREATE, nullptr, 1, ignore),
            0u);
  ASSERT_TRUE(running->im().wait_idle(soon));
  char name[LUM_DEVID_NAME_SIZE] = {};
  EXPECT_EQ(table.ifname_from_ifh(0x08000001, name), 0u);
  EXPECT_STREQ(name, "Ots0_1_0_1_0");
  EXPECT_EQ(table.ifname_from_ifh(0x08000002, name), 2u);
  EXPECT_EQ(table.ifname_from_ifh(0x08000001, nullptr), 22u);
  const uint32_t handle = 0x08000001;
  const std::vector<uint8_t> update(LUM_UPDATE_ELEMENT_SIZE);
  EXPECT_EQ(table.im_update_req_by_ifhandle(&handle, 188, update.data(), LUM_UPDATE_ELEMENT_SIZE,
                                            LUM_IM_UPDATE, nullptr, 1, ignore),
            0u);
  ASSERT_TRUE(running->im().wait_idle(soon));
  EXPECT_EQ(running->im().controllers()[0].updates, 1u);
}

TEST_F(Platform, AnswersFirmwareUpgradesPerPort) {
  const auto running = start();
  const lum_platform_cbs &table = running->callbacks();
  uint32_t status = 9;
  EXPECT_EQ(table.fw_upgrade_status(first_port, &status), 0u);
  EXPECT_EQ(status, 0u);
  EXPECT_TRUE(running->set_fw_upgrade(first_port, 5));
  EXPECT_EQ(table.fw_upgrade_status(first_port, &status), 0u);
  EXPECT_EQ(status, 5u);
  EXPECT_EQ(running->fw_upgrade(first_port), 5u);
  EXPECT_EQ(table.fw_upgrade_status(second_port, &status), 0u);
  EXPECT_EQ(status, 0u);
  EXPECT_FALSE(running->set_fw_upgrade(77, 1));
  EXPECT_EQ(running->fw_upgrade(77), 0u);
  EXPECT_EQ(table.fw_upgrade_status(77, &status), 22u);
  EXPECT_EQ(table.fw_upgrade_status(first_port, nullptr), 22u);
}

TEST_F(Platform, CountsControllersAndTellsTheObserver) {
  const auto running = start();
  std::vector<std::pair<bool, std::vector<controller_event>>> told;
  running->observe_controllers([&](bool created, std::span<const controller_event> events) {
    told.emplace_back(created, std::vector(events.begin(), events.end()));
  });
  EXPECT_EQ(tell(*running, 1, {first_port, first_port}, {0, 1}, {101, 102}), 0u);
  EXPECT_EQ(running->created_controllers(), 2u);
  EXPECT_TRUE(running->wait_created(2, milliseconds(0)));
  EXPECT_FALSE(running->wait_created(3, milliseconds(1)));
  // Created again under a new handle, then confirmed without one.
  EXPECT_EQ(tell(*running, 1, {first_port, first_port}, {0, 1}, {201, 0}), 0u);
  EXPECT_EQ(running->created_controllers(), 1u);
  EXPECT_TRUE(running->has_controllers(first_port));
  EXPECT_FALSE(running->has_controllers(second_port));
  EXPECT_EQ(tell(*running, 1, {first_port}, {0}, {0}), 0u);
  EXPECT_FALSE(running->has_controllers(first_port));
  ASSERT_EQ(told.size(), 3u);
  EXPECT_TRUE(told[0].first);
  EXPECT_THAT(told[0].second,
              ElementsAre(is_event(first_port, 0, 101), is_event(first_port, 1, 102)));
}

TEST_F(Platform, GoesByTheHandlesOfADeletion) {
  const auto running = start();
  std::vector<controller_event> gone;
  running->observe_controllers([&](bool created, std::span<const controller_event> events) {
    if (!created) gone.assign(events.begin(), events.end());
  });
  tell(*running, 1, {first_port, first_port, second_port}, {0, 1, 0}, {101, 102, 103});
  // An unknown handle leaves no rsip, and those behind it move up.
  tell(*running, 0, {second_port, 0, 0}, {0, 0, 0}, {999, 103, 0});
  EXPECT_THAT(gone, ElementsAre(is_event(second_port, 0, 103)));
  EXPECT_TRUE(running->wait_deleted(2, milliseconds(0)));
  EXPECT_FALSE(running->wait_deleted(1, milliseconds(1)));
}

TEST_F(Platform, TellsOfUpdates) {
  const auto running = start();
  std::vector<uint32_t> told;
  running->observe_updates(
      [&](std::span<const uint32_t> rsips) { told.assign(rsips.begin(), rsips.end()); });
  const uint32_t rsips[] = {first_port, first_port};
  EXPECT_EQ(running->callbacks().ctrl_update_notify(2, rsips), 0u);
  EXPECT_THAT(told, ElementsAre(first_port, first_port));
  running->observe_updates({});
  EXPECT_EQ(running->callbacks().ctrl_update_notify(2, rsips), 0u);
  EXPECT_EQ(running->callbacks().ctrl_update_notify(2, nullptr), 22u);
  EXPECT_EQ(running->callbacks().ctrl_op_notify(1, 1, nullptr, nullptr, nullptr), 22u);
  EXPECT_EQ(tell(*running, 2, {1}, {0}, {1}), 22u);
}

TEST_F(Platform, AnObserverThatThrowsHarmsNobody) {
  const auto running = start();
  running->observe_updates([](std::span<const uint32_t>) { throw std::runtime_error("no"); });
  const uint32_t rsip = first_port;
  EXPECT_NE(running->callbacks().ctrl_update_notify(1, &rsip), 0u);
  EXPECT_NE(running->callbacks().ctrl_update_notify(1, &rsip), 0u);
}

TEST_F(Platform, WakesThoseWhoWaitForControllers) {
  const auto running = start();
  std::thread waiter([&] { EXPECT_TRUE(running->wait_created(1, soon)); });
  std::this_thread::sleep_for(milliseconds(5));
  tell(*running, 1, {first_port}, {0}, {101});
  waiter.join();
  std::thread second([&] { EXPECT_TRUE(running->wait_deleted(0, soon)); });
  tell(*running, 0, {first_port}, {0}, {101});
  second.join();
}

TEST_F(Platform, StopsOnceAndItsCallbacksTouchNothingAfterwards) {
  auto running = start();
  const lum_platform_cbs &table = running->callbacks();
  EXPECT_TRUE(running->stop());
  EXPECT_TRUE(running->stop());
  uint8_t value = 7;
  uint32_t word = 7;
  char name[LUM_DEVID_NAME_SIZE] = "x";
  EXPECT_EQ(table.i2c_read_byte(1, 0, 1, 0, 10, &value), 19u);
  EXPECT_EQ(table.i2c_write_byte(1, 0, 1, 0, 10, 1), 19u);
  EXPECT_EQ(table.led_set_state(first_port, 0, 1), 19u);
  EXPECT_EQ(table.fw_upgrade_status(first_port, &word), 19u);
  EXPECT_EQ(table.ifname_from_ifh(1, name), 19u);
  EXPECT_EQ(tell(*running, 1, {first_port}, {0}, {101}), 19u);
  EXPECT_EQ(value, 7);
  EXPECT_EQ(word, 7u);
  running.reset();
  EXPECT_EQ(table.i2c_read_byte(1, 0, 1, 0, 10, &value), 19u);
}

TEST_F(Platform, StopsWhileATransferHangs) {
  const auto running = start();
  running->modules().set_faults(first_port, {.hang = true});
  std::thread poller([&] {
    uint8_t value = 0;
    EXPECT_NE(running->callbacks().i2c_read_byte(1, 0, 1, 0, 10, &value), 0u);
  });
  std::this_thread::sleep_for(milliseconds(20));
  EXPECT_TRUE(running->stop());
  poller.join();
}

TEST_F(Platform, StopsWithinItsBoundWhileACompletionHangs) {
  auto running = start();
  std::mutex gate;
  std::unique_lock closed(gate);
  static std::mutex *at = nullptr;
  static std::atomic<bool> entered, left;
  at = &gate;
  entered = left = false;
  const char *names[] = {"Ots0_1_0_1_0"};
  const std::vector<uint8_t> create(LUM_CREATE_ELEMENT_SIZE);
  running->callbacks().im_req_by_name(names, 188, create.data(), 1, LUM_IM_CREATE, nullptr, 1,
                                      [](imca_reply_info_type *, void *) {
                                        entered = true;
                                        at->lock();
                                        at->unlock();
                                        left = true;
                                      });
  while (!entered) std::this_thread::yield();
  EXPECT_FALSE(running->stop(milliseconds(50)));
  EXPECT_FALSE(running->stop(milliseconds(50)));
  running.reset();
  closed.unlock();
  while (!left) std::this_thread::yield();
}

TEST_F(Platform, StartsAgainAfterAStopAndKnowsNothingOfBefore) {
  auto first = start();
  pm_ui_port_create(188, 5, "Ots0_1_0_1_0");
  tell(*first, 1, {first_port}, {0}, {101});
  first.reset();
  const auto second = start();
  EXPECT_EQ(second->created_controllers(), 0u);
  EXPECT_THAT(pm_interfaces(), IsEmpty());
}

TEST_F(Platform, ThereIsOneInAProcess) {
  const auto running = start();
  std::string error;
  EXPECT_FALSE(platform::start(node(), error));
  EXPECT_EQ(error, "this process has a platform already");
  uint8_t value = 0;
  EXPECT_EQ(running->callbacks().i2c_read_byte(1, 0, 1, 0, 10, &value), 0u);
}

TEST_F(Platform, RefusesAStateDirectoryThatIsInUse) {
  const auto running = start();
  const pid_t child = fork();
  if (child == 0) {
    // The child inherits the platform, so it looks as another process does: through the lock.
    const int fd = open((folder.path() / "state/lock").c_str(), O_RDWR);
    _exit(fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  running->stop();
  const int fd = open((folder.path() / "state/lock").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  std::string error;
  EXPECT_FALSE(platform::start(node(), error));
  EXPECT_THAT(error, HasSubstr("another process uses it"));
  close(fd);
  EXPECT_TRUE(platform::start(node(), error)) << error;
}

TEST_F(Platform, StartsWithoutAStateDirectory) {
  node_description without = node();
  without.state_directory = folder.path() / "1.eeprom/state";
  std::string error;
  const auto running = platform::start(without, error);
  ASSERT_TRUE(running) << error;
  chkpt_appdesc descriptor;
  chkpt_appdesc_init(&descriptor);
  EXPECT_EQ(chkpt_init(0, &descriptor), 0u);
  EXPECT_FALSE(checkpoints_status().open);
  EXPECT_THAT(checkpoints_status().reason, HasSubstr("Not a directory"));
}

TEST_F(Platform, SaysWhichFolderItCannotMake) {
  node_description broken = node();
  broken.trace_directory = folder.path() / "1.eeprom/traces";
  std::string error;
  EXPECT_FALSE(platform::start(broken, error));
  EXPECT_THAT(error, HasSubstr("cannot make the folder"));
  EXPECT_THAT(error, HasSubstr("1.eeprom/traces"));
  EXPECT_TRUE(start());
}

TEST_F(Platform, SaysWhatIsWrongWithASimulatedModule) {
  folder.write("bad.toml", "vendor = \n");
  std::string error;
  const std::string text = small_node::with(port(1, "backend = 'simulated'\nmodule = 'bad.toml'"));
  EXPECT_FALSE(platform::start(node(text), error));
  EXPECT_THAT(error, HasSubstr((folder.path() / "bad.toml").string() + ":1: "));
  EXPECT_TRUE(start());
}

}  // namespace
}  // namespace lum_linux
