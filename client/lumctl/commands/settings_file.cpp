#include "commands/settings_file.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "description/toml_depth.h"
#include "names.h"
#include "terminal/printable.h"
#include "wording/nearest.h"
#include "words/settings.h"

namespace lumctl {
namespace {

constexpr std::streamsize longest_file = 4 << 20;
constexpr const char *expected_tables = "expected [[settings]] tables";
constexpr auto names = names_of(lum_words::settings);

// The file's text, or why it cannot be read.
std::string read_text(const std::string &file, std::string &error) {
  std::error_code code;
  if (std::filesystem::is_directory(file, code)) {
    error = std::strerror(EISDIR);
    return {};
  }
  errno = 0;
  std::ifstream stream(file, std::ios::binary);
  std::string text;
  if (stream) {
    text.resize(longest_file + 1);
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
  }
  if (!stream.is_open() || stream.bad()) {
    error = std::strerror(errno != 0 ? errno : EIO);
  } else if (text.size() > longest_file) {
    error = fmt::format("more than {} bytes", longest_file);
  }
  return text;
}

class file_reader {
 public:
  explicit file_reader(std::string file) : file_(std::move(file)) {}

  settings_file read() {
    std::string error;
    const std::string text = read_text(file_, error);
    if (!error.empty()) {
      read_.problems.push_back(fmt::format("{}: cannot be read: {}", file_, error));
    } else if (const auto line = lum_linux::find_deep_toml_key(text)) {
      complain(*line, fmt::format("a key with more than {} parts; {}", lum_linux::deepest_toml_key,
                                  expected_tables));
    } else {
      parse(text);
    }
    if (!read_.problems.empty()) read_.listed.clear();
    return std::move(read_);
  }

 private:
  void complain(unsigned line, const std::string &what) {
    read_.problems.push_back(fmt::format("{}:{}: {}", file_, line, what));
  }

  // The parser is not told the file: to keep its name it needs memory where it may not throw.
  void parse(const std::string &text) {
    try {
      const toml::table document = toml::parse(text);
      for (const auto &[key, node] : document) read_top(key, node);
    } catch (const toml::parse_error &error) {
      complain(error.source().begin.line, fmt::format("{}; expected TOML", error.description()));
    }
  }

  void read_top(const toml::key &key, const toml::node &node) {
    const unsigned line = key.source().begin.line;
    if (key.str() != "settings") {
      return complain(line, fmt::format("unknown key '{}', {}", key.str(), expected_tables));
    }
    const toml::array *const all = node.as_array();
    if (all == nullptr)
      return complain(line, fmt::format("'settings' is no array, {}", expected_tables));
    for (const toml::node &one : *all) {
      if (const toml::table *table = one.as_table()) {
        read_table(*table);
      } else {
        complain(one.source().begin.line, fmt::format("not a table, {}", expected_tables));
      }
    }
  }

  void read_table(const toml::table &table) {
    listed_settings one;
    one.line = table.source().begin.line;
    one.settings = json::object();
    for (const auto &[key, node] : table) read_key(key, node, one);
    if (one.port.empty()) complain(one.line, "missing key 'port', expected a port's name");
    if (one.settings.empty()) {
      complain(one.line, fmt::format("no setting, expected one or more of {}", members(", ")));
    }
    read_.listed.push_back(std::move(one));
  }

  void read_key(const toml::key &key, const toml::node &node, listed_settings &one) {
    const unsigned line = key.source().begin.line;
    const std::string name(key.str());
    if (name == "port") {
      const auto *text = node.as_string();
      if (text == nullptr || text->get().empty()) {
        return complain(line, "'port' is no text, expected a port's name");
      }
      one.port = text->get();
    } else if (name == "sub_port") {
      const auto number = whole(node);
      if (!number || *number < 0 || *number > 1) return complain(line, "'sub_port' is not 0 or 1");
      one.sub_port = static_cast<unsigned>(*number);
    } else {
      read_setting(line, name, node, one);
    }
  }

  // The range of a value is the driver's to judge.
  void read_setting(unsigned line, const std::string &name, const toml::node &node,
                    listed_settings &one) {
    const bool is_known = std::any_of(names.begin(), names.end(), [&](std::string_view known) {
      return lum_words::member_of(known) == name;
    });
    if (!is_known) {
      return complain(line, fmt::format("there is no setting '{}', expected port, sub_port or one "
                                        "of {}{}",
                                        name, members(", "), near(name)));
    }
    const auto number = whole(node);
    constexpr std::int64_t most = std::numeric_limits<std::uint32_t>::max();
    if (!number || *number < -most || *number > most) {
      return complain(line, fmt::format("'{}' is not a whole number of at most 32 bits", name));
    }
    one.settings[name] = *number;
  }

  static std::optional<std::int64_t> whole(const toml::node &node) {
    const auto *number = node.as_integer();
    return number == nullptr ? std::nullopt : std::optional(number->get());
  }

  static std::vector<std::string> all_members() {
    std::vector<std::string> all;
    all.reserve(names.size());
    for (const std::string_view name : names) all.push_back(lum_words::member_of(name));
    return all;
  }
  static std::string members(const char *between) {
    return fmt::format("{}", fmt::join(all_members(), between));
  }
  static std::string near(const std::string &name) {
    return lum_wording::did_you_mean(name, all_members());
  }

  std::string file_;
  settings_file read_;
};

std::string as_toml(const std::string &text) {
  std::ostringstream stream;
  stream << toml::value<std::string>(text);
  return stream.str();
}

// What of a setting is to be kept: what is in force, else what is saved.
const json &value_of(const json &setting) {
  const json &in_force = setting.at("in_force").at("value");
  return in_force.is_null() ? setting.at("saved").at("value") : in_force;
}

bool is_saved_otherwise(const json &setting) {
  const json &differs = setting.at("differs");
  return std::find(differs.begin(), differs.end(), "saved") != differs.end();
}

void export_sub_port(const std::string &port, const json &sub_port, exported_settings &into) {
  const auto number = sub_port.at("sub_port").get<unsigned>();
  const std::string place = fmt::format("{}:{}", port, number);
  const json &settings = sub_port.at("settings");
  std::string values;
  std::string unknown;
  bool differs = false;
  for (const json &setting : settings) {
    const json &value = value_of(setting);
    differs = differs || is_saved_otherwise(setting);
    if (value.is_number()) {
      values +=
          fmt::format("{} = {}\n", lum_words::member_of(setting.at("name").get<std::string>()),
                      value.get<std::int64_t>());
    } else if (setting.at("never_set").is_null()) {
      unknown = setting.at("saved").at("reason").get<std::string>();
    }
  }
  if (!unknown.empty()) {
    into.missing.push_back(fmt::format("what is saved of {} is not known: {}", place, unknown));
  }
  if (differs) into.remarks.push_back(place + ": what is saved is not what is in force");
  if (values.empty()) return;
  into.text +=
      fmt::format("\n[[settings]]\nport = {}\nsub_port = {}\n{}", as_toml(port), number, values);
}

}  // namespace

settings_file read_settings_file(const std::string &file) { return file_reader(file).read(); }

exported_settings export_settings(const json &answer) {
  exported_settings exported;
  exported.text = fmt::format("# Settings of node {} at {}, for \"lumctl config import\".\n",
                              printable(answer.at("node").get<std::string>()),
                              answer.at("asked_at").get<std::string>());
  for (const json &port : answer.at("ports")) {
    for (const json &sub_port : port.at("sub_ports")) {
      export_sub_port(port.at("name").get<std::string>(), sub_port, exported);
    }
  }
  return exported;
}

}  // namespace lumctl
