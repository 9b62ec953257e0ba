// What an accepted description becomes.
#include "lum_linux/node_description.h"

#include <gmock/gmock.h>

#include "small_node.h"
#include "test_folder.h"

namespace lum_linux {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class NodeDescription : public testing::Test {
 protected:
  NodeDescription() { std::filesystem::create_directory(folder.path() / "modules"); }

  node_description accept(const std::string &text) { return small_node::described(text, folder); }

  test_folder folder;
};

constexpr const char *one_port = R"(
name = "node-a"
state_directory = "state"
trace_directory = "traces"

[[slot]]
number = 3
[[slot.instance]]
[[slot.instance.port]]
number = 7
handle = 4103
module = "modules/7.eeprom"
)";

TEST_F(NodeDescription, FillsInEveryDefault) {
  const node_description node = accept(one_port);
  EXPECT_EQ(node.name, "node-a");
  EXPECT_EQ(node.source, folder.path() / "node.toml");
  EXPECT_EQ(node.rack, 0u);
  EXPECT_EQ(node.state_directory, folder.path() / "state");
  EXPECT_EQ(node.trace_directory, folder.path() / "traces");
  EXPECT_EQ(node.led_directory, "/sys/class/leds");
  EXPECT_EQ(node.api_socket, folder.path() / "state/lumd.sock");
  EXPECT_FALSE(node.http_port);
  EXPECT_FALSE(node.syslog_receiver);
  EXPECT_EQ(node.http_address, "127.0.0.1");
  EXPECT_EQ(node.interface_manager.delay_min_ms, 0u);
  EXPECT_EQ(node.interface_manager.delay_max_ms, 0u);
  EXPECT_EQ(node.interface_manager.seed, 1u);
  EXPECT_FALSE(node.interface_manager.out_of_order);
  EXPECT_EQ(node.interface_manager.handle_base, 0x08000000u);
  ASSERT_EQ(node.slots.size(), 1u);
  EXPECT_EQ(node.slots[0].number, 3u);
  ASSERT_EQ(node.slots[0].instances.size(), 1u);
  EXPECT_EQ(node.slots[0].instances[0].number, 0u);
  EXPECT_EQ(node.slots[0].instances[0].capacity, 1u);
  ASSERT_EQ(node.ports().size(), 1u);
  const port_description &port = *node.ports()[0];
  EXPECT_EQ(port.number, 7u);
  EXPECT_EQ(port.rsip, 0x00030007u);
  EXPECT_EQ(port.handle, 4103u);
  EXPECT_EQ(port.name, "0/3/0/7");
  EXPECT_EQ(port.module.backend, module_backend::file);
  EXPECT_EQ(port.module.file, folder.path() / "modules/7.eeprom");
  EXPECT_EQ(port.led, "");
  EXPECT_EQ(port.line, 9u);
}

TEST_F(NodeDescription, TakesEveryKey) {
  const node_description node = accept(R"(
name = "node-b"
rack = 255
state_directory = "/tmp"
trace_directory = "/tmp"
led_directory = "leds"
api_socket = "api.sock"
socket_group = "readers"
http_port = 8080
syslog_receiver = "[2001:db8::1]:1514"
http_address = "2001:db8::7"
http_certificate = "tls/node.pem"
http_key = "/etc/node.key"
http_client_ca = "clients.pem"

[interface_manager]
delay_ms = 5
delay_max_ms = 20
seed = 9
out_of_order = true
handle_base = 0x10000000

[[slot]]
number = 15
[[slot.instance]]
number = 3
capacity = 300
[[slot.instance.port]]
number = 255
handle = 65535
name = "east"
module = "/tmp/east.eeprom"
led = "east"
[[slot.instance.port]]
number = 0
handle = 1
backend = "i2c-dev"
bus = "/dev/i2c-9"
address = 0x51
bank = 0
presence = "there"
reset = "/tmp/reset"
reset_value = "0"
low_power = "low"
low_power_value = "yes"
low_power_idle_value = "no"
[[slot.instance.port]]
number = 1
handle = 2
backend = "simulated"
module = "modules/one.toml"
[[slot.instance.port]]
number = 2
handle = 3
backend = "simulated"
module = "modules/one.toml"
)");
  EXPECT_EQ(node.rack, 255u);
  EXPECT_EQ(node.led_directory, folder.path() / "leds");
  EXPECT_EQ(node.api_socket, folder.path() / "api.sock");
  EXPECT_EQ(node.socket_group, "readers");
  EXPECT_EQ(node.http_port, 8080);
  ASSERT_TRUE(node.syslog_receiver);
  EXPECT_EQ(to_string(*node.syslog_receiver), "[2001:db8::1]:1514");
  EXPECT_EQ(node.http_address, "2001:db8::7");
  EXPECT_EQ(node.http_certificate, folder.path() / "tls/node.pem");
  EXPECT_EQ(node.http_key, "/etc/node.key");
  EXPECT_EQ(node.http_client_ca, folder.path() / "clients.pem");
  EXPECT_EQ(node.interface_manager.delay_min_ms, 5u);
  EXPECT_EQ(node.interface_manager.delay_max_ms, 20u);
  EXPECT_EQ(node.interface_manager.seed, 9u);
  EXPECT_TRUE(node.interface_manager.out_of_order);
  EXPECT_EQ(node.interface_manager.handle_base, 0x10000000u);
  EXPECT_EQ(node.slots.at(0).instances.at(0).capacity, 300u);
  const auto ports = node.ports();
  ASSERT_EQ(ports.size(), 4u);
  EXPECT_EQ(ports[0]->rsip, 0xFF0F03FFu);
  EXPECT_EQ(ports[0]->name, "east");
  EXPECT_EQ(ports[0]->led, "east");
  EXPECT_EQ(ports[0]->module.file, "/tmp/east.eeprom");
  EXPECT_EQ(ports[1]->module.backend, module_backend::i2c_dev);
  EXPECT_EQ(ports[1]->module.i2c_bus, "/dev/i2c-9");
  EXPECT_EQ(ports[1]->module.i2c_address, 0x51u);
  EXPECT_EQ(ports[1]->module.i2c_bank, 0);
  EXPECT_EQ(ports[1]->module.presence, folder.path() / "there");
  EXPECT_EQ(ports[1]->module.presence_value, "1");
  EXPECT_EQ(ports[1]->module.reset.file, "/tmp/reset");
  EXPECT_EQ(ports[1]->module.reset.on_value, "0");
  EXPECT_EQ(ports[1]->module.reset.off_value, "1") << "the other of 0 and 1";
  EXPECT_EQ(ports[1]->module.low_power.file, folder.path() / "low");
  EXPECT_EQ(ports[1]->module.low_power.on_value, "yes");
  EXPECT_EQ(ports[1]->module.low_power.off_value, "no");
  EXPECT_FALSE(ports[0]->module.i2c_bank);
  EXPECT_TRUE(ports[0]->module.reset.file.empty());
  EXPECT_EQ(ports[2]->module.backend, module_backend::simulated);
  EXPECT_EQ(ports[2]->module.file, ports[3]->module.file);
  EXPECT_EQ(node.find(0xFF0F0302u), ports[3]);
  EXPECT_EQ(node.find(0xFF0F0303u), nullptr);
}

TEST_F(NodeDescription, TakesAnInstanceWithoutPortsAndTheSameNumberInAnother) {
  const node_description node = accept(R"(
name = "n"
state_directory = "s"
trace_directory = "t"
http_port = 0
slot = [
  { number = 0, instance = [{ number = 0 },
                            { number = 1, port = [{ number = 0, handle = 1, module = "1" }] }] },
  { number = 1, instance = [{ port = [{ number = 0, handle = 2, module = "2" }] }] },
]
)");
  EXPECT_EQ(node.http_port, 0);
  ASSERT_EQ(node.slots.size(), 2u);
  EXPECT_EQ(node.slots[0].instances.at(0).capacity, 0u);
  ASSERT_EQ(node.ports().size(), 2u);
  EXPECT_EQ(node.ports()[0]->rsip, 0x00000100u);
  EXPECT_EQ(node.ports()[1]->rsip, 0x00010000u);
}

TEST_F(NodeDescription, GivesSettingsTheirUnits) {
  const node_description node =
      accept(std::string(one_port) + "[units]\nthreshold = \"0.1 dBm\"\nsetting_b = \"GHz\"\n");
  EXPECT_EQ(node.units.threshold, "0.1 dBm");
  EXPECT_EQ(node.units.p2_setting, "");
  EXPECT_EQ(node.units.setting_a, "");
  EXPECT_EQ(node.units.setting_b, "GHz");
}

TEST_F(NodeDescription, IsReadFromAFileRelativeToItsFolder) {
  folder.write("modules/7.eeprom", "");
  const auto file = folder.write("node.toml", one_port);
  const auto result = read_node_description(file);
  EXPECT_THAT(result.problems, IsEmpty());
  ASSERT_TRUE(result.node);
  EXPECT_EQ(result.node->ports().at(0)->module.file, folder.path() / "modules/7.eeprom");
}

TEST_F(NodeDescription, ReadingItMakesNoFolder) {
  accept(one_port);
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "state"));
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "traces"));
}

}  // namespace
}  // namespace lum_linux
