// What one node consists of, as read from its TOML description; docs/node-description.md lists
// every key. A description is either accepted whole or refused with every problem found in it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lum_linux {

// Packs a position the way the library does. Every part is 0 to 255.
constexpr uint32_t make_rsip(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t port) {
  return rack << 24 | slot << 16 | instance << 8 | port;
}

enum class module_backend {
  file,       // a file in the optoe eeprom layout: sysfs on hardware, an ordinary file elsewhere
  i2c_dev,    // a Linux I2C bus, /dev/i2c-N
  simulated,  // a module in memory, built from a readable module description
};

// A line of a cage that can be steered, such as a GPIO: a file, and what stands in it.
struct line_description {
  std::filesystem::path file;  // empty: the cage has no such line
  std::string on_value;
  std::string off_value;
};

struct module_description {
  module_backend backend = module_backend::file;
  std::filesystem::path file;       // file, simulated: absolute; a file not there is an empty cage
  std::filesystem::path i2c_bus;    // i2c_dev: the bus device
  uint32_t i2c_address = 0x50;      // i2c_dev: 7-bit address
  std::optional<uint8_t> i2c_bank;  // i2c_dev: the bank to select; none: banks are left alone
  std::filesystem::path presence;   // file, i2c_dev: what says whether there is a module, or empty
  std::string presence_value;       // and what it holds while there is one
  line_description reset;           // file, i2c_dev
  line_description low_power;       // file, i2c_dev
};

struct port_description {
  uint32_t number = 0;  // 0 to 255
  uint32_t rsip = 0;
  uint32_t handle = 0;  // 1 to 65535
  std::string name;     // "rack/slot/instance/port" unless the description names it
  module_description module;
  std::string led;    // name below the LED directory; empty: the port has none
  uint32_t line = 0;  // where the description names the port
};

struct instance_description {
  uint32_t number = 0;    // 0 to 3
  uint32_t capacity = 0;  // ports the library makes room for, at least ports.size()
  std::vector<port_description> ports;
};

struct slot_description {
  uint32_t number = 0;  // 0 to 15
  std::vector<instance_description> instances;
};

// How the interface manager starts out; all of it can be changed while it runs.
struct im_description {
  uint32_t delay_min_ms = 0;  // each reply is delayed by a random time from this range
  uint32_t delay_max_ms = 0;
  uint32_t seed = 1;          // of the random delays
  bool out_of_order = false;  // answers waiting batches newest first
  uint32_t handle_base = 0x08000000;
};

// The units that settings are given in, such as "dBm"; empty where the description does not say.
struct setting_units {
  std::string threshold;
  std::string p2_setting;
  std::string setting_a;
  std::string setting_b;
};

// Who takes datagrams.
struct receiver_address {
  std::string host;  // an IPv4 or IPv6 address, no name
  uint16_t port = 0;

  bool is_ipv6() const { return host.find(':') != std::string::npos; }
};
// "192.0.2.1:514", "[2001:db8::1]:514"
std::string to_string(const receiver_address &address);

struct node_description {
  std::filesystem::path source;  // the description's own file
  std::string name;
  uint32_t rack = 0;  // 0 to 255; the library reaches modules of rack 0 only
  std::filesystem::path state_directory;
  std::filesystem::path trace_directory;
  std::filesystem::path led_directory;
  std::filesystem::path api_socket;
  std::string socket_group;  // whose members may look through the socket; empty: nobody else may
  std::optional<uint16_t> http_port;       // absent: no HTTP; 0: any free port
  std::vector<std::string> http_names;     // by which HTTP may be asked for, in small letters
  std::string http_address = "127.0.0.1";  // of IPv4 or IPv6
  // Of TLS, in PEM; without a certificate HTTP is plain, without a CA it asks for no certificate.
  std::filesystem::path http_certificate;
  std::filesystem::path http_key;
  std::filesystem::path http_client_ca;
  std::optional<receiver_address> syslog_receiver;  // of events, over UDP
  im_description interface_manager;
  setting_units units;
  std::vector<slot_description> slots;

  // Every port in the order of the description.
  std::vector<const port_description *> ports() const;
  // The port at a position, or null.
  const port_description *find(uint32_t rsip) const;
};

// One thing wrong with a description. `line` is 0 when the file itself is at fault.
struct description_problem {
  std::string file;
  uint32_t line = 0;
  std::string message;  // what is wrong, and what was expected
};

// "file:line: message", or "file: message" without a line, with a question mark for each character
// that would steer a terminal.
std::string to_string(const description_problem &problem);

// Holds the node when there are no problems, and nothing but the problems otherwise.
struct description_result {
  std::optional<node_description> node;
  std::vector<description_problem> problems;  // in the order of their lines
};

// Reads and checks a description. Looks at the file system (folders must be there) but changes
// nothing. Never throws for bad input.
description_result read_node_description(const std::filesystem::path &file);

// As above for a description held in memory; `file` names it in problems, and relative paths start
// at its folder.
description_result parse_node_description(std::string_view text, const std::filesystem::path &file);

}  // namespace lum_linux
