// Every way to get a description wrong, with the file, line and text of the answer.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>

#include "lum_linux/node_description.h"
#include "test_folder.h"

namespace lum_linux {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// Replaces every {} of `text` by `folder`.
std::string in(const std::string &folder, std::string text) {
  for (size_t at = text.find("{}"); at != std::string::npos; at = text.find("{}", at)) {
    text.replace(at, 2, folder);
    at += folder.size();
  }
  return text;
}

// Lines 1 to 3 of every node, so that what a test adds starts in line 4.
constexpr const char *head = R"(name = "n"
state_directory = "state"
trace_directory = "traces"
)";

// One port, whose keys start in line 4; a test adds keys behind it, from line 7 on.
constexpr const char *port_head = R"([[slot]]
number = 1
[[slot.instance]]
[[slot.instance.port]]
)";

struct refusal {
  const char *name;
  std::string text;
  std::vector<std::string> problems;  // without "file:"; {} stands for the folder
};

class NodeDescriptionRefuses : public testing::TestWithParam<refusal> {};

TEST_P(NodeDescriptionRefuses, WithFileLineAndWhatWasExpected) {
  const test_folder folder;
  std::filesystem::create_directory(folder.path() / "modules");
  folder.write("file", "");
  const std::string file = (folder.path() / "node.toml").string();
  const auto result = parse_node_description(in(folder.path(), GetParam().text), file);
  EXPECT_FALSE(result.node);
  std::vector<std::string> expected, found;
  for (const auto &problem : GetParam().problems) {
    expected.push_back(file + ":" + in(folder.path(), problem));
  }
  for (const auto &problem : result.problems) found.push_back(to_string(problem));
  EXPECT_EQ(found, expected);
}

std::string node(const std::string &keys) {
  return head + keys + "[[slot]]\nnumber = 0\n[[slot.instance]]\n";
}

std::string port(const std::string &keys) { return std::string(head) + port_head + keys; }

std::string two_ports(const std::string &first, const std::string &second) {
  return port(first + "[[slot.instance.port]]\n" + second);
}

const std::string all_node_keys =
    "expected one of name, rack, state_directory, trace_directory, led_directory, api_socket, "
    "socket_group, http_port, http_names, http_address, http_certificate, http_key, "
    "http_client_ca, "
    "syslog_receiver, interface_manager, units, slot";
const std::string lines_of_cage =
    "reset, reset_value, reset_idle_value, low_power, low_power_value, low_power_idle_value, led";
const std::string text_1024 = "expected a text of 1 to 1024 bytes";

const std::string receiver_expected =
    "expected an address and a port, such as 192.0.2.1:514 or [2001:db8::1]:514";

const std::vector<refusal> refusals = {
    {"UnknownNodeKey",
     node("colour = 3\n"),
     {"4: unknown key 'colour' in the node, " + all_node_keys}},
    {"EmptyDescription",
     "",
     {"1: missing key 'name' in the node, expected a text of 1 to 63 bytes",
      "1: missing key 'state_directory' in the node, " + text_1024,
      "1: missing key 'trace_directory' in the node, " + text_1024,
      "1: missing key 'slot' in the node, expected one or more [[slot]] tables"}},
    {"NoSlots",
     std::string(head) + "slot = []\n",
     {"4: 'slot' is empty, expected one or more [[slot]] tables"}},
    {"SlotIsNoTable",
     std::string(head) + "slot = 3\n",
     {"4: 'slot' is an integer, expected one or more [[slot]] tables"}},
    {"SlotHoldsNoTable",
     std::string(head) + "slot = ['x']\n",
     {"4: 'slot' holds a text, expected one or more [[slot]] tables"}},
    {"RackTooLarge", node("rack = 256\n"), {"4: 'rack' is 256, expected an integer from 0 to 255"}},
    {"RackNegative", node("rack = -1\n"), {"4: 'rack' is -1, expected an integer from 0 to 255"}},
    {"RackIsText",
     node("rack = '1'\n"),
     {"4: 'rack' is a text, expected an integer from 0 to 255"}},
    {"RackIsFloat",
     node("rack = 1.0\n"),
     {"4: 'rack' is a floating-point number, expected an integer from 0 to 255"}},
    {"RackIsDate",
     node("rack = 2020-01-01\n"),
     {"4: 'rack' is a date or time, expected an integer from 0 to 255"}},
    {"HttpPortTooLarge",
     node("http_port = 65536\n"),
     {"4: 'http_port' is 65536, expected an integer from 0 to 65535"}},
    {"HttpPortIsArray",
     node("http_port = [1]\n"),
     {"4: 'http_port' is an array, expected an integer from 0 to 65535"}},
    {"SyslogReceiverIsAName",
     node("syslog_receiver = 'log.example.net:514'\n"),
     {"4: 'syslog_receiver' is 'log.example.net:514', " + receiver_expected}},
    {"SyslogReceiverWithoutPort",
     node("syslog_receiver = '192.0.2.1'\n"),
     {"4: 'syslog_receiver' is '192.0.2.1', " + receiver_expected}},
    {"SyslogReceiverPortIsTooLarge",
     node("syslog_receiver = '192.0.2.1:65536'\n"),
     {"4: 'syslog_receiver' is '192.0.2.1:65536', " + receiver_expected}},
    {"SyslogReceiverIpv6WithoutBrackets",
     node("syslog_receiver = '2001:db8::1:514'\n"),
     {"4: 'syslog_receiver' is '2001:db8::1:514', " + receiver_expected}},
    {"HttpAddressIsName",
     node("http_port = 0\nhttp_address = 'localhost'\n"),
     {"5: 'http_address' is \"localhost\", expected an address of this machine such as "
      "\"192.0.2.7\" "
      "or \"2001:db8::7\", or \"0.0.0.0\" or \"::\" for all"}},
    {"HttpAddressWithoutPort",
     node("http_address = '::1'\n"),
     {"4: there is 'http_address' without 'http_port', expected both"}},
    {"HttpCertificateAlone",
     node("http_certificate = 'c'\n"),
     {"4: there is 'http_certificate' without 'http_port', expected both",
      "4: there is 'http_certificate' without 'http_key', expected both"}},
    {"HttpClientCaAlone",
     node("http_port = 0\nhttp_client_ca = 'c'\n"),
     {"5: there is 'http_client_ca' without 'http_certificate', expected both"}},
    {"LedDirectoryIsBoolean",
     node("led_directory = true\n"),
     {"4: 'led_directory' is a boolean, " + text_1024}},
    {"LedDirectoryIsEmpty",
     node("led_directory = ''\n"),
     {"4: 'led_directory' is 0 bytes long, " + text_1024}},
    {"LedDirectoryIsFile",
     node("led_directory = 'file'\n"),
     {"4: 'led_directory' names '{}/file', which is no folder; expected a folder, or nothing "
      "yet"}},
    {"ControlCharacter",
     node("led_directory = \"a\\u0000b\"\n"),
     {"4: 'led_directory' holds a control character, expected a text of 1 to 1024 bytes of "
      "printable characters"}},
    {"HighControlCharacter",
     node("led_directory = \"a\\u009bb\"\n"),
     {"4: 'led_directory' holds a control character, expected a text of 1 to 1024 bytes of "
      "printable characters"}},
    {"SocketPathTooLong",
     node("api_socket = '/" + std::string(81, 's') + "'\n"),
     {"4: the name of 'api_socket' is 81 bytes long, expected 1 to 80: /" + std::string(81, 's')}},
    {"SocketIsAFolder",
     node("api_socket = '/run/'\n"),
     {"4: the name of 'api_socket' is 0 bytes long, expected 1 to 80: /run/"}},
    {"InterfaceManagerIsNoTable",
     node("interface_manager = 1\n"),
     {"4: 'interface_manager' is an integer, expected a [interface_manager] table"}},
    {"UnknownInterfaceManagerKey",
     node("[interface_manager]\nslow = 1\n"),
     {"5: unknown key 'slow' in the interface manager, expected one of delay_ms, delay_max_ms, "
      "seed, out_of_order, handle_base"}},
    {"UnknownUnit",
     node("[units]\nmode = 'dBm'\n"),
     {"5: unknown key 'mode' in the units, expected one of threshold, p2_setting, setting_a, "
      "setting_b"}},
    {"UnitTooLong",
     node("[units]\nthreshold = '" + std::string(16, 'u') + "'\n"),
     {"5: 'threshold' is 16 bytes long, expected a text of 1 to 15 bytes"}},
    {"DelayRangeReversed",
     node("[interface_manager]\ndelay_ms = 9\ndelay_max_ms = 8\n"),
     {"6: 'delay_max_ms' is 8, expected an integer from 9 to 60000"}},
    {"OutOfOrderIsInteger",
     node("[interface_manager]\nout_of_order = 1\n"),
     {"5: 'out_of_order' is an integer, expected true or false"}},
    {"HandleBaseZero",
     node("[interface_manager]\nhandle_base = 0\n"),
     {"5: 'handle_base' is 0, expected an integer from 1 to 4293918720"}},
    {"SlotNumberOutOfRange",
     std::string(head) + "[[slot]]\nnumber = 16\n[[slot.instance]]\n",
     {"5: 'number' is 16, expected an integer from 0 to 15"}},
    {"SlotNumberMissing",
     std::string(head) + "[[slot]]\n[[slot.instance]]\n",
     {"4: missing key 'number' in the slot, expected an integer from 0 to 15"}},
    {"SlotTwice",
     node("") + "[[slot]]\nnumber = 0\n[[slot.instance]]\n",
     {"8: slot 0 is used twice, first in line 5; expected one [[slot]] for each slot",
      "9: instance 0 of slot 0 is used twice, first in line 6; expected one [[slot.instance]] for "
      "each instance"}},
    {"UnknownSlotKey",
     std::string(head) + "[[slot]]\nnumber = 1\nname = 'x'\n[[slot.instance]]\n",
     {"6: unknown key 'name' in the slot, expected one of number, instance"}},
    {"SlotWithoutInstance",
     std::string(head) + "[[slot]]\nnumber = 1\n",
     {"4: missing key 'instance' in the slot, expected one or more [[slot.instance]] tables"}},
    {"InstanceNumberOutOfRange",
     node("") + "number = 4\n",
     {"7: 'number' is 4, expected an integer from 0 to 3"}},
    {"InstanceTwice",
     node("") + "[[slot.instance]]\nnumber = 0\n",
     {"8: instance 0 of slot 0 is used twice, first in line 6; expected one [[slot.instance]] for "
      "each instance"}},
    {"CapacityBelowPorts",
     node("") + "capacity = 0\nport = [{ number = 1, handle = 1, module = 'm' }]\n",
     {"7: 'capacity' is 0, expected an integer from 1 to 65535"}},
    {"UnknownInstanceKey",
     node("") + "ports = 3\n",
     {"7: unknown key 'ports' in the instance, expected one of number, port, capacity (did you "
      "mean \"port\"?)"}},
    {"UnknownPortKey",
     port("number = 1\nhandle = 1\nmodule = 'm'\ncolour = 1\n"),
     {"11: unknown key 'colour' in the port, expected one of number, name, handle, backend, "
      "module, presence, presence_value, " +
      lines_of_cage}},
    {"PresenceValueAlone",
     port("number = 1\nhandle = 1\nmodule = 'm'\npresence_value = '0'\n"),
     {"11: 'presence_value' says what 'presence' holds, expected 'presence' too"}},
    {"ResetValueAlone",
     port("number = 1\nhandle = 1\nmodule = 'm'\nreset_value = '0'\n"),
     {"11: 'reset_value' says what 'reset' holds, expected 'reset' too"}},
    {"LowPowerIdleValueAlone",
     port("number = 1\nhandle = 1\nmodule = 'm'\nlow_power_idle_value = '0'\n"),
     {"11: 'low_power_idle_value' says what 'low_power' holds, expected 'low_power' too"}},
    {"LineWithOneValue",
     port("number = 1\nhandle = 1\nmodule = 'm'\nreset = 'r'\nreset_value = 'x'\n"
          "reset_idle_value = 'x'\n"),
     {"11: 'reset_value' and 'reset_idle_value' are both \"x\", expected two values"}},
    {"ResetInNoFolder",
     port("number = 1\nhandle = 1\nmodule = 'm'\nreset = '/none/line'\n"),
     {"11: 'reset' names '/none/line' in a folder that is not there, expected the folder "
      "'/none'"}},
    {"BankOutOfRange",
     port("number = 1\nhandle = 1\nbackend = 'i2c-dev'\nbus = '/dev/i2c-1'\nbank = 256\n"),
     {"12: 'bank' is 256, expected an integer from 0 to 255"}},
    {"PresenceInNoFolder",
     port("number = 1\nhandle = 1\nmodule = 'm'\npresence = '/none/line'\n"),
     {"11: 'presence' names '/none/line' in a folder that is not there, expected the folder "
      "'/none'"}},
    {"PortKeysMissing",
     port(""),
     {"7: missing key 'number' in the port, expected an integer from 0 to 255",
      "7: missing key 'handle' in the port, expected an integer from 1 to 65535",
      "7: missing key 'module' in the port, " + text_1024}},
    {"PortNumberOutOfRange",
     port("number = 256\nhandle = 1\nmodule = 'm'\n"),
     {"8: 'number' is 256, expected an integer from 0 to 255"}},
    {"PortHandleZero",
     port("number = 1\nhandle = 0\nmodule = 'm'\n"),
     {"9: 'handle' is 0, expected an integer from 1 to 65535"}},
    {"PortHandleTooLarge",
     port("number = 1\nhandle = 65536\nmodule = 'm'\n"),
     {"9: 'handle' is 65536, expected an integer from 1 to 65535"}},
    {"PortNameTooLong",
     port("number = 1\nhandle = 1\nmodule = 'm'\nname = '" + std::string(64, 'n') + "'\n"),
     {"11: 'name' is 64 bytes long, expected a text of 1 to 63 bytes"}},
    {"SamePositionTwice",
     two_ports("number = 1\nhandle = 1\nmodule = 'a'\n", "number = 1\nhandle = 2\nmodule = 'b'\n"),
     {"12: port number 1 is used twice, first in line 8; expected a number of its own for each "
      "port of an instance"}},
    {"SameHandleTwice",
     two_ports("number = 1\nhandle = 1\nmodule = 'a'\n", "number = 2\nhandle = 1\nmodule = 'b'\n"),
     {"13: port handle 1 is used twice, first in line 9; expected a handle of its own for each "
      "port"}},
    {"SameNameTwice",
     two_ports("number = 1\nhandle = 1\nmodule = 'a'\nname = 'x'\n",
               "number = 2\nhandle = 2\nmodule = 'b'\nname = 'x'\n"),
     {"16: port name 'x' is used twice, first in line 11; expected a name of its own for each "
      "port"}},
    {"NameIsAnothersDefault",
     two_ports("number = 1\nhandle = 1\nmodule = 'a'\n",
               "number = 2\nhandle = 2\nmodule = 'b'\nname = '0/1/0/1'\n"),
     {"15: port name '0/1/0/1' is used twice, first in line 7; expected a name of its own for "
      "each port"}},
    {"NameIsAnothersPosition",
     two_ports("number = 1\nhandle = 1\nmodule = 'a'\nname = 'west'\n",
               "number = 2\nhandle = 2\nmodule = 'b'\nname = '0/1/0/1'\n"),
     {"16: port name '0/1/0/1' is also the position of port 'west', named in line 11; expected a "
      "name that means one port"}},
    {"NameIsAnothersSubPort",
     two_ports("number = 1\nhandle = 1\nmodule = 'a'\nname = 'west:1'\n",
               "number = 2\nhandle = 2\nmodule = 'b'\nname = 'west'\n"),
     {"11: port name 'west:1' is also sub-port 1 of port 'west', named in line 16; expected a name "
      "that means one port"}},
    {"NameIsSubPortOfAnothersPosition",
     two_ports("number = 1\nhandle = 1\nmodule = 'a'\nname = 'west'\n",
               "number = 2\nhandle = 2\nmodule = 'b'\nname = '0/1/0/1:0'\n"),
     {"16: port name '0/1/0/1:0' is also sub-port 0 of port 'west', named in line 11; expected a "
      "name that means one port"}},
    {"NamesThatNoAddressHolds",
     two_ports("number = 1\nhandle = 1\nmodule = 'a'\nname = '.'\n",
               "number = 2\nhandle = 2\nmodule = 'b'\nname = '..'\n"),
     {"11: port name '.' is taken out of the path of every address; expected a name other than . "
      "and ..",
      "16: port name '..' is taken out of the path of every address; expected a name other than . "
      "and .."}},
    {"SameModuleTwice",
     two_ports("number = 1\nhandle = 1\nmodule = 'a'\n",
               "number = 2\nhandle = 2\nmodule = 'modules/../a'\n"),
     {"14: module file 'modules/../a' is used twice, first in line 10; expected a module of its "
      "own for each port"}},
    {"SameI2cModuleTwice",
     two_ports("number = 1\nhandle = 1\nbackend = 'i2c-dev'\nbus = '/dev/i2c-1'\n",
               "number = 2\nhandle = 2\nbackend = 'i2c-dev'\nbus = '/dev/i2c-1'\n"),
     {"16: address 0x50 of bus '/dev/i2c-1' is used twice, first in line 11; expected a module of "
      "its own for each port"}},
    {"SameLedTwice",
     two_ports("number = 1\nhandle = 1\nmodule = 'a'\nled = 'l'\n",
               "number = 2\nhandle = 2\nmodule = 'b'\nled = 'l'\n"),
     {"16: LED 'l' is used twice, first in line 11; expected an LED of its own for each port"}},
    {"LedOutsideItsDirectory",
     port("number = 1\nhandle = 1\nmodule = 'a'\nled = '../l'\n"),
     {"11: 'led' is \"../l\", expected a name below the LED directory"}},
    {"ModuleFolderMissing",
     port("number = 1\nhandle = 1\nmodule = 'nowhere/a'\n"),
     {"10: 'module' names '{}/nowhere/a' in a folder that is not there, expected the folder "
      "'{}/nowhere'"}},
    {"ModuleIsFolder",
     port("number = 1\nhandle = 1\nmodule = 'modules'\n"),
     {"10: 'module' names the folder '{}/modules', expected a file"}},
    {"BusFolderMissing",
     port("number = 1\nhandle = 1\nbackend = 'i2c-dev'\nbus = 'nowhere/i2c-1'\n"),
     {"11: 'bus' names '{}/nowhere/i2c-1' in a folder that is not there, expected the folder "
      "'{}/nowhere'"}},
    {"UnknownBackend",
     port("number = 1\nhandle = 1\nbackend = 'spi'\nmodule = 'a'\nbus = 'b'\n"),
     {"10: 'backend' is \"spi\", expected \"file\", \"i2c-dev\" or \"simulated\""}},
    {"LikelyBackend",
     port("number = 1\nhandle = 1\nbackend = 'simulate'\nmodule = 'a'\n"),
     {"10: 'backend' is \"simulate\", expected \"file\", \"i2c-dev\" or \"simulated\" (did you "
      "mean \"simulated\"?)"}},
    {"KeyOfAnotherBackend",
     port("number = 1\nhandle = 1\nmodule = 'a'\naddress = 0x50\n"),
     {"11: unknown key 'address' in the port, expected one of number, name, handle, backend, "
      "module, presence, presence_value, " +
      lines_of_cage}},
    {"FileOfI2cBackend",
     port("number = 1\nhandle = 1\nbackend = 'i2c-dev'\nbus = '/dev/i2c-1'\nmodule = 'a'\n"),
     {"12: unknown key 'module' in the port, expected one of number, name, handle, backend, bus, "
      "address, bank, presence, presence_value, " +
      lines_of_cage}},
    {"AddressOutOfRange",
     port("number = 1\nhandle = 1\nbackend = 'i2c-dev'\nbus = '/dev/i2c-1'\naddress = 0x78\n"),
     {"12: 'address' is 120, expected an integer from 3 to 119"}},
    {"EveryProblemAtOnce",
     node("rack = 300\ncolour = 1\n") + "number = 9\nports = 1\n",
     {"4: 'rack' is 300, expected an integer from 0 to 255",
      "5: unknown key 'colour' in the node, " + all_node_keys,
      "9: 'number' is 9, expected an integer from 0 to 3",
      "10: unknown key 'ports' in the instance, expected one of number, port, capacity (did you "
      "mean \"port\"?)"}},
};

INSTANTIATE_TEST_SUITE_P(All, NodeDescriptionRefuses, testing::ValuesIn(refusals),
                         [](const auto &each) { return each.param.name; });

TEST(NodeDescriptionFile, ThatIsNotThereIsRefused) {
  const test_folder folder;
  const std::string file = (folder.path() / "node.toml").string();
  const auto result = read_node_description(file);
  EXPECT_FALSE(result.node);
  ASSERT_EQ(result.problems.size(), 1u);
  EXPECT_EQ(to_string(result.problems[0]),
            file +
                ": cannot be read: No such file or directory; expected a node description in "
                "TOML");
}

TEST(NodeDescriptionFile, ThatIsAFolderIsRefused) {
  const test_folder folder;
  const auto result = read_node_description(folder.path());
  ASSERT_EQ(result.problems.size(), 1u);
  EXPECT_EQ(to_string(result.problems[0]),
            folder.path().string() +
                ": cannot be read: Is a directory; expected a node description in TOML");
}

TEST(NodeDescriptionFile, ThatIsUnreadableIsRefused) {
  constexpr uid_t nobody = 65534;
  const test_folder folder;
  const auto file = folder.write("node.toml", "");
  chmod(file.c_str(), 0);
  const uid_t user = geteuid();
  ASSERT_EQ(user == 0 ? seteuid(nobody) : 0, 0);  // root may read every file
  const auto result = read_node_description(file);
  ASSERT_EQ(seteuid(user), 0);
  ASSERT_EQ(result.problems.size(), 1u);
  EXPECT_THAT(to_string(result.problems[0]), HasSubstr("cannot be read: Permission denied"));
}

TEST(NodeDescriptionFile, ThatIsHugeIsRefused) {
  const test_folder folder;
  const auto file = folder.write("node.toml", std::string((4 << 20) + 1, '#'));
  const auto result = read_node_description(file);
  ASSERT_EQ(result.problems.size(), 1u);
  EXPECT_THAT(to_string(result.problems[0]), HasSubstr("cannot be read: more than 4194304 bytes"));
}

TEST(NodeDescriptionFile, ThatIsNoTomlIsRefusedInTheLineOfTheFault) {
  for (const auto &[text, line] : std::vector<std::pair<std::string, uint32_t>>{
           {"name = \"a\"\nrack =\n", 2},
           {"name = \"a\"\nname = \"b\"\n", 2},
           {"\n\nrack = 99999999999999999999\n", 3},
           {"name = \"a\xff\"\n", 1},
           {std::string("name = 'a'\n\0\n", 13), 2},
       }) {
    const auto result = parse_node_description(text, "node.toml");
    EXPECT_FALSE(result.node);
    ASSERT_EQ(result.problems.size(), 1u) << text;
    EXPECT_EQ(result.problems[0].line, line) << to_string(result.problems[0]);
    EXPECT_THAT(to_string(result.problems[0]), HasSubstr("expected a node description in TOML"));
  }
}

TEST(NodeDescriptionFile, SocketMayLieDeeperThanItsAddressHolds) {
  const std::string text = "name = 'n'\nstate_directory = '/" + std::string(200, 'd') +
                           "'\ntrace_directory = 't'\n[[slot]]\nnumber = 0\n[[slot.instance]]\n";
  for (const auto &problem : parse_node_description(text, "node.toml").problems) {
    EXPECT_THAT(problem.message, Not(HasSubstr("api_socket")));
  }
}

TEST(NodeDescriptionFile, KeysOfAnyDepthAreRefusedInTheirLine) {
  std::string dotted = "a";
  for (int part = 0; part < 100000; ++part) dotted += ".a";
  for (const std::string &deep : {dotted + " = 1", "[" + dotted + "]", "[[" + dotted + "]]",
                                  "b = {" + dotted + " = 1}", "'q' . \"r\" . " + dotted + " = 1"}) {
    const auto result = parse_node_description("name = 'n' # a.b\n" + deep + "\n", "node.toml");
    ASSERT_EQ(result.problems.size(), 1u);
    EXPECT_EQ(to_string(result.problems[0]),
              "node.toml:2: a key with more than 16 parts; expected a node description");
  }
}

TEST(NodeDescriptionFile, DotsInTextsAndCommentsAreNoKeys) {
  const std::string dots = "a.b.c.d.e.f.g.h.i.j.k.l.m.n.o.p.q.r.s.t.u.v.w.x.y.z";
  for (const std::string &text : {"name = '" + dots + "'", "name = \"" + dots + "\" # " + dots,
                                  "# " + dots, "name = '''\n" + dots + "\n'''"}) {
    for (const auto &problem : parse_node_description(text + "\n", "node.toml").problems) {
      EXPECT_THAT(problem.message, Not(HasSubstr("parts"))) << text;
    }
  }
}

}  // namespace
}  // namespace lum_linux
