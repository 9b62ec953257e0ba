#include "lum_linux/node_description.h"

#include <fmt/format.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <utility>

#include "description/control_characters.h"
#include "description/http_keys.h"
#include "description/port_names.h"
#include "description/receiver_address.h"
#include "description/toml_table.h"
#include "lum_linux/disks.h"
#include "wording/nearest.h"

namespace lum_linux {
namespace {

namespace fs = std::filesystem;

constexpr std::streamsize max_description_bytes = 4 << 20;
constexpr size_t max_name_bytes = 63;
constexpr size_t max_unit_bytes = 15;
constexpr size_t max_path_bytes = 1024;
// What a socket's address holds behind its folder's place below /proc.
constexpr size_t max_socket_name_bytes = 80;
constexpr size_t max_group_name_bytes = 63;
constexpr size_t max_receiver_bytes = 63;
constexpr std::array<std::string_view, 3> backends = {"file", "i2c-dev", "simulated"};

// Finds the things that may be there once only.
class uniqueness {
 public:
  explicit uniqueness(problem_list &problems) : problems_(problems) {}

  // Reports `what` at `line` when `key` was there before; true when it is new.
  template <typename Key>
  bool check(std::map<Key, uint32_t> &seen, const Key &key, uint32_t line, const std::string &what,
             const char *expected) {
    const auto [first, is_new] = seen.emplace(key, line);
    if (!is_new) {
      problems_.add(line, fmt::format("{} is used twice, first in line {}; expected {}", what,
                                      first->second, expected));
    }
    return is_new;
  }

  std::map<uint32_t, uint32_t> slots;
  std::map<uint32_t, uint32_t> instances;  // slot << 8 | instance
  std::map<uint32_t, uint32_t> numbers;    // of the ports of one instance
  std::map<uint32_t, uint32_t> handles;
  std::map<std::string, uint32_t> names;
  std::map<std::string, uint32_t> modules;
  std::map<std::string, uint32_t> leds;

 private:
  problem_list &problems_;
};

// Where an instance or port stands; not known when a number of it is wrong.
struct place {
  uint32_t slot = 0;
  uint32_t instance = 0;
  bool known = true;
};

// Turns one parsed document into a node.
class node_reader {
 public:
  node_reader(const fs::path &file, problem_list &problems)
      : folder_(fs::absolute(file).parent_path()), problems_(problems), unique_(problems) {
    node_.source = file;
  }

  node_description read(toml_table &table);

 private:
  void read_directories(toml_table &table);
  void read_api_socket(toml_table &table, const std::optional<located<std::string>> &state);
  void read_socket_group(toml_table &table);
  void read_interface_manager(toml_table &table);
  void read_syslog_receiver(toml_table &table);
  void read_units(toml_table &table);
  void read_slot(toml_table &table);
  void read_instance(toml_table &table, place where, slot_description &into);
  void read_port(toml_table &table, place where, instance_description &into);
  void read_position(toml_table &table, place where, port_description &port);
  void read_module(toml_table &table, port_description &port);
  void read_module_file(toml_table &table, port_description &port);
  void read_lines(toml_table &table, port_description &port);
  void read_presence(toml_table &table, port_description &port);
  void read_line(toml_table &table, const char *key, line_description &line);
  void read_i2c_module(toml_table &table, port_description &port);
  void read_led(toml_table &table, port_description &port);

  fs::path resolve(const std::string &text) const { return (folder_ / text).lexically_normal(); }
  void want_folder_or_nothing(const char *key, const fs::path &path, uint32_t line);
  void want_folder_of(const char *key, const fs::path &path, uint32_t line);

  fs::path folder_;
  problem_list &problems_;
  uniqueness unique_;
  port_names names_;
  node_description node_;
};

// Browsers take these out of a path, encoded or not, so that a port of this name could not be asked
// for.
bool is_path_step(std::string_view name) { return name == "." || name == ".."; }

template <typename T>
T value_or(const std::optional<located<int64_t>> &found, T fallback) {
  return found ? static_cast<T>(found->value) : fallback;
}

node_description node_reader::read(toml_table &table) {
  if (auto name = table.text("name", max_name_bytes)) node_.name = name->value;
  node_.rack = value_or(table.integer("rack", 0, 255, 0), 0u);
  read_directories(table);
  read_http_keys(table, folder_, problems_, node_);
  read_syslog_receiver(table);
  if (auto im = table.table("interface_manager", "the interface manager")) {
    read_interface_manager(*im);
  }
  if (auto units = table.table("units", "the units")) read_units(*units);
  for (toml_table &slot : table.tables("slot", "[[slot]]", true, "the slot")) read_slot(slot);
  names_.refuse_ambiguous(problems_);
  table.refuse_unknown_keys();
  return std::move(node_);
}

void node_reader::read_directories(toml_table &table) {
  const auto state = table.text("state_directory", max_path_bytes);
  if (state) {
    node_.state_directory = resolve(state->value);
    want_folder_or_nothing("state_directory", node_.state_directory, state->line);
  }
  if (const auto trace = table.text("trace_directory", max_path_bytes)) {
    node_.trace_directory = resolve(trace->value);
    want_folder_or_nothing("trace_directory", node_.trace_directory, trace->line);
  }
  if (const auto led = table.text("led_directory", max_path_bytes, "/sys/class/leds")) {
    node_.led_directory = resolve(led->value);
    want_folder_or_nothing("led_directory", node_.led_directory, led->line);
  }
  read_api_socket(table, state);
  read_socket_group(table);
}

void node_reader::read_api_socket(toml_table &table,
                                  const std::optional<located<std::string>> &state) {
  const bool given = table.has("api_socket");
  const auto socket =
      table.text("api_socket", max_path_bytes, state ? state->value + "/lumd.sock" : "lumd.sock");
  if (!socket || (!given && !state)) return;
  node_.api_socket = resolve(socket->value);
  const std::string name = node_.api_socket.filename().native();
  if (name.empty() || name.size() > max_socket_name_bytes) {
    problems_.add(given ? socket->line : state->line,
                  fmt::format("the name of 'api_socket' is {} bytes long, expected 1 to {}: {}",
                              name.size(), max_socket_name_bytes, node_.api_socket.native()));
  }
}

void node_reader::read_socket_group(toml_table &table) {
  if (auto group = table.text("socket_group", max_group_name_bytes, "")) {
    node_.socket_group = std::move(group->value);
  }
}

void node_reader::read_interface_manager(toml_table &table) {
  im_description &im = node_.interface_manager;
  const auto min = table.integer("delay_ms", 0, 60000, 0);
  const int64_t least = min ? min->value : 0;
  im.delay_min_ms = static_cast<uint32_t>(least);
  im.delay_max_ms = value_or(table.integer("delay_max_ms", least, 60000, least), 0u);
  im.seed = value_or(table.integer("seed", 0, UINT32_MAX, 1), 1u);
  if (const auto out_of_order = table.boolean("out_of_order", false)) {
    im.out_of_order = out_of_order->value;
  }
  im.handle_base =
      value_or(table.integer("handle_base", 1, 0xFFF00000, im.handle_base), im.handle_base);
  table.refuse_unknown_keys();
}

void node_reader::read_syslog_receiver(toml_table &table) {
  const auto text = table.text("syslog_receiver", max_receiver_bytes, "");
  if (!text || text->value.empty()) return;
  node_.syslog_receiver = read_receiver_address(text->value);
  if (node_.syslog_receiver) return;
  problems_.add(text->line,
                fmt::format("'syslog_receiver' is '{}', expected an address and a port, such as "
                            "192.0.2.1:514 or [2001:db8::1]:514",
                            text->value));
}

void node_reader::read_units(toml_table &table) {
  const auto read = [&table](const char *key, std::string &unit) {
    if (auto found = table.text(key, max_unit_bytes, "")) unit = std::move(found->value);
  };
  read("threshold", node_.units.threshold);
  read("p2_setting", node_.units.p2_setting);
  read("setting_a", node_.units.setting_a);
  read("setting_b", node_.units.setting_b);
  table.refuse_unknown_keys();
}

void node_reader::read_slot(toml_table &table) {
  slot_description slot;
  const auto number = table.integer("number", 0, 15);
  if (number) {
    slot.number = static_cast<uint32_t>(number->value);
    unique_.check(unique_.slots, slot.number, number->line, fmt::format("slot {}", slot.number),
                  "one [[slot]] for each slot");
  }
  for (toml_table &instance : table.tables("instance", "[[slot.instance]]", true, "the instance")) {
    read_instance(instance, {slot.number, 0, number.has_value()}, slot);
  }
  table.refuse_unknown_keys();
  node_.slots.push_back(std::move(slot));
}

void node_reader::read_instance(toml_table &table, place where, slot_description &into) {
  instance_description instance;
  const auto number = table.integer("number", 0, 3, 0);
  instance.number = where.instance = value_or(number, 0u);
  where.known = where.known && number;
  if (where.known) {
    unique_.check(unique_.instances, where.slot << 8 | where.instance, number->line,
                  fmt::format("instance {} of slot {}", where.instance, where.slot),
                  "one [[slot.instance]] for each instance");
  }
  unique_.numbers.clear();
  for (toml_table &port : table.tables("port", "[[slot.instance.port]]", false, "the port")) {
    read_port(port, where, instance);
  }
  const auto ports = static_cast<int64_t>(instance.ports.size());
  instance.capacity = value_or(table.integer("capacity", ports, 65535, ports), 0u);
  table.refuse_unknown_keys();
  into.instances.push_back(std::move(instance));
}

void node_reader::read_port(toml_table &table, place where, instance_description &into) {
  port_description port;
  port.line = table.line();
  read_position(table, where, port);
  if (const auto handle = table.integer("handle", 1, 65535)) {
    port.handle = static_cast<uint32_t>(handle->value);
    unique_.check(unique_.handles, port.handle, handle->line,
                  fmt::format("port handle {}", port.handle), "a handle of its own for each port");
  }
  read_module(table, port);
  read_led(table, port);
  table.refuse_unknown_keys();
  into.ports.push_back(std::move(port));
}

// The port's number, and its name, whose default is made of the position.
void node_reader::read_position(toml_table &table, place where, port_description &port) {
  const auto number = table.integer("number", 0, 255);
  port.number = value_or(number, 0u);
  port.rsip = make_rsip(node_.rack, where.slot, where.instance, port.number);
  const bool number_is_good =
      number && unique_.check(unique_.numbers, port.number, number->line,
                              fmt::format("port number {}", port.number),
                              "a number of its own for each port of an instance");
  const bool position_is_known = number_is_good && where.known;
  const std::string position =
      fmt::format("{}/{}/{}/{}", node_.rack, where.slot, where.instance, port.number);
  const auto name = table.text("name", max_name_bytes, position);
  if (name && is_path_step(name->value)) {
    problems_.add(name->line, fmt::format("port name '{}' is taken out of the path of every "
                                          "address; expected a name other than . and ..",
                                          name->value));
    return;
  }
  if (name && (position_is_known || table.has("name"))) {
    port.name = name->value;
    names_.add({port.name, name->line, position_is_known ? position : ""});
    unique_.check(unique_.names, port.name, name->line, fmt::format("port name '{}'", port.name),
                  "a name of its own for each port");
  }
}

void node_reader::read_module(toml_table &table, port_description &port) {
  const auto backend = table.text("backend", max_name_bytes, "file");
  if (backend && backend->value == "i2c-dev") {
    read_i2c_module(table, port);
    read_lines(table, port);
  } else if (backend && (backend->value == "file" || backend->value == "simulated")) {
    port.module.backend =
        backend->value == "file" ? module_backend::file : module_backend::simulated;
    read_module_file(table, port);
    if (port.module.backend == module_backend::file) read_lines(table, port);
  } else {
    if (backend) {
      problems_.add(
          backend->line,
          fmt::format("'backend' is \"{}\", expected \"file\", \"i2c-dev\" or "
                      "\"simulated\"{}",
                      backend->value, lum_wording::did_you_mean(backend->value, backends)));
    }
    // Whatever the keys of the module say cannot be judged without knowing the backend.
    table.text("module", max_path_bytes, "");
    table.text("bus", max_path_bytes, "");
    table.integer("address", 0, 0x7F, 0);
    table.integer("bank", 0, 255, 0);
    port_description ignored;
    read_lines(table, ignored);
  }
}

void node_reader::read_lines(toml_table &table, port_description &port) {
  read_presence(table, port);
  read_line(table, "reset", port.module.reset);
  read_line(table, "low_power", port.module.low_power);
}

// A line of which one value is given has the other of 0 and 1.
void node_reader::read_line(toml_table &table, const char *key, line_description &line) {
  const std::string on_key = fmt::format("{}_value", key);
  const std::string off_key = fmt::format("{}_idle_value", key);
  const bool has_values = table.has(on_key) || table.has(off_key);
  const auto file = table.text(key, max_path_bytes, "");
  const auto on = table.text(on_key, max_name_bytes, "1");
  const auto off = table.text(off_key, max_name_bytes, on && on->value == "0" ? "1" : "0");
  if (!file || !on || !off) return;
  if (file->value.empty()) {
    if (has_values) {
      const bool has_on = table.has(on_key);
      problems_.add(has_on ? on->line : off->line,
                    fmt::format("'{}' says what '{}' holds, expected '{}' too",
                                has_on ? on_key : off_key, key, key));
    }
    return;
  }
  if (on->value == off->value) {
    problems_.add(file->line, fmt::format("'{}' and '{}' are both \"{}\", expected two values",
                                          on_key, off_key, on->value));
  }
  line = {resolve(file->value), on->value, off->value};
  want_folder_of(key, line.file, file->line);
}

void node_reader::read_presence(toml_table &table, port_description &port) {
  const bool has_value = table.has("presence_value");
  const auto file = table.text("presence", max_path_bytes, "");
  const auto value = table.text("presence_value", max_name_bytes, "1");
  if (!file || !value) return;
  if (file->value.empty()) {
    if (has_value) {
      problems_.add(value->line,
                    "'presence_value' says what 'presence' holds, expected 'presence' too");
    }
    return;
  }
  port.module.presence = resolve(file->value);
  port.module.presence_value = value->value;
  want_folder_of("presence", port.module.presence, file->line);
}

void node_reader::read_module_file(toml_table &table, port_description &port) {
  const auto file = table.text("module", max_path_bytes);
  if (!file) return;
  port.module.file = resolve(file->value);
  want_folder_of("module", port.module.file, file->line);
  // Modules in memory may well be built from one and the same description.
  if (port.module.backend == module_backend::simulated) return;
  std::error_code error;
  const fs::path real = fs::weakly_canonical(port.module.file, error);
  unique_.check(unique_.modules, (error ? port.module.file : real).string(), file->line,
                fmt::format("module file '{}'", file->value), "a module of its own for each port");
}

void node_reader::read_i2c_module(toml_table &table, port_description &port) {
  port.module.backend = module_backend::i2c_dev;
  const auto bus = table.text("bus", max_path_bytes);
  const auto address = table.integer("address", 0x03, 0x77, 0x50);
  const bool has_bank = table.has("bank");
  const auto bank = table.integer("bank", 0, 255, 0);
  if (has_bank && bank) port.module.i2c_bank = static_cast<uint8_t>(bank->value);
  if (!bus || !address) return;
  port.module.i2c_bus = resolve(bus->value);
  port.module.i2c_address = static_cast<uint32_t>(address->value);
  want_folder_of("bus", port.module.i2c_bus, bus->line);
  unique_.check(
      unique_.modules, fmt::format("{} {}", port.module.i2c_bus.native(), port.module.i2c_address),
      bus->line, fmt::format("address 0x{:02x} of bus '{}'", port.module.i2c_address, bus->value),
      "a module of its own for each port");
}

void node_reader::read_led(toml_table &table, port_description &port) {
  const bool given = table.has("led");
  const auto led = table.text("led", max_name_bytes, "");
  if (!led || !given) return;
  if (led->value.find('/') != std::string::npos || led->value == "." || led->value == "..") {
    problems_.add(led->line, fmt::format("'led' is \"{}\", expected a name below the LED directory",
                                         led->value));
    return;
  }
  port.led = led->value;
  unique_.check(unique_.leds, port.led, led->line, fmt::format("LED '{}'", port.led),
                "an LED of its own for each port");
}

void node_reader::want_folder_or_nothing(const char *key, const fs::path &path, uint32_t line) {
  if (!place_answers(path)) return;  // whoever needs it tells of it
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found || fs::is_directory(status)) return;
  problems_.add(
      line,
      fmt::format("'{}' names '{}', {}; expected a folder, or nothing yet", key, path.native(),
                  status.type() == fs::file_type::none ? error.message() : "which is no folder"));
}

void node_reader::want_folder_of(const char *key, const fs::path &path, uint32_t line) {
  std::error_code error;
  const fs::path folder = path.parent_path();
  if (!fs::is_directory(folder, error)) {
    problems_.add(line, fmt::format("'{}' names '{}' in a folder that is not there, expected the "
                                    "folder '{}'",
                                    key, path.native(), folder.native()));
  } else if (fs::is_directory(path, error) || !path.has_filename()) {
    problems_.add(line,
                  fmt::format("'{}' names the folder '{}', expected a file", key, path.native()));
  }
}

// Reads the whole file, or says why not.
std::string read_file(const fs::path &file, std::string &error) {
  std::error_code code;
  if (fs::is_directory(file, code)) {
    error = std::strerror(EISDIR);
    return {};
  }
  errno = 0;
  std::ifstream stream(file, std::ios::binary);
  std::string text;
  if (stream) {
    text.resize(max_description_bytes + 1);
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(stream.gcount()));
  }
  if (!stream.is_open() || stream.bad()) {
    error = std::strerror(errno != 0 ? errno : EIO);
  } else if (text.size() > max_description_bytes) {
    error = fmt::format("more than {} bytes", max_description_bytes);
  }
  return text;
}

}  // namespace

std::vector<const port_description *> node_description::ports() const {
  std::vector<const port_description *> result;
  for (const auto &slot : slots) {
    for (const auto &instance : slot.instances) {
      for (const auto &port : instance.ports) result.push_back(&port);
    }
  }
  return result;
}

const port_description *node_description::find(uint32_t rsip) const {
  for (const port_description *port : ports()) {
    if (port->rsip == rsip) return port;
  }
  return nullptr;
}

std::string to_string(const description_problem &problem) {
  const std::string place =
      problem.line == 0 ? problem.file : fmt::format("{}:{}", problem.file, problem.line);
  return without_control_characters(fmt::format("{}: {}", place, problem.message));
}

description_result read_node_description(const fs::path &file) {
  std::string error;
  const std::string text = read_file(file, error);
  if (error.empty()) return parse_node_description(text, file);
  problem_list problems(file.string());
  problems.add(0, fmt::format("cannot be read: {}; expected a node description in TOML", error));
  return {{}, problems.take()};
}

description_result parse_node_description(std::string_view text, const fs::path &file) {
  problem_list problems(file.string());
  node_description node;
  read_toml(text, "node", problems,
            [&](toml_table &root) { node = node_reader(file, problems).read(root); });
  if (problems.empty()) return {std::move(node), {}};
  return {{}, problems.take()};
}

}  // namespace lum_linux
