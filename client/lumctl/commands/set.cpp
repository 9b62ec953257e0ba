#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

#include "commands/exchange.h"
#include "printing/port_cells.h"
#include "printing/port_text.h"

namespace lumctl {
namespace {

constexpr std::array<std::string_view, 7> fields = {"threshold", "p2-setting", "mode", "setting-a",
                                                    "setting-b", "enable",     "sub1"};

std::string joined_fields() {
  std::string names;
  for (const std::string_view field : fields) {
    names += (names.empty() ? "" : ", ") + std::string(field);
  }
  return names;
}

// A decimal or 0x hexadecimal number, possibly negative.
bool read_number(std::string_view text, std::int64_t &number) {
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  std::uint32_t magnitude = 0;
  const char *const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
  number = negative ? -std::int64_t{magnitude} : std::int64_t{magnitude};
  return error == std::errc() && stop == end;
}

// Reads field=value into a request's body; says what is wrong with it, or nothing.
std::string read_setting(const std::string &text, json &body) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) return fmt::format("\"{}\" is not FIELD=VALUE", text);
  std::string field = text.substr(0, equals);
  std::replace(field.begin(), field.end(), '_', '-');
  if (std::find(fields.begin(), fields.end(), field) == fields.end()) {
    return fmt::format("there is no setting \"{}\", expected one of {}", field, joined_fields());
  }
  std::int64_t number = 0;
  if (!read_number(std::string_view(text).substr(equals + 1), number)) {
    return fmt::format("{} is \"{}\", expected a whole number of at most 32 bits", field,
                       text.substr(equals + 1));
  }
  std::replace(field.begin(), field.end(), '-', '_');
  if (body.contains(field)) return fmt::format("{} is given twice", field);
  body[field] = number;
  return {};
}

std::string check_setting(const std::string &text) {
  json ignored = json::object();
  return read_setting(text, ignored);
}

struct target {
  std::string name;
  json body = json::object();
};

// Takes NAME or NAME:SUBPORT apart. A colon that no digits follow belongs to the name.
target read_target(const std::string &text) {
  target result;
  const std::size_t colon = text.rfind(':');
  const std::string digits = colon == std::string::npos ? "" : text.substr(colon + 1);
  std::uint32_t number = 0;
  const char *const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, number);
  if (error != std::errc() || stop != end) {
    result.name = text;
    return result;
  }
  result.name = text.substr(0, colon);
  result.body["sub_port"] = number;
  return result;
}

void print_stored(const json &reply) {
  const std::string name = text_or_dash(reply.at("name"));
  fmt::print("{}:{} {}\n", name, reply.at("sub_port").get<unsigned>(),
             describe_configuration(reply.at("stored")));
  if (!reply.at("module_written").get<bool>()) {
    fmt::print(
        "not all of it has reached the module; \"lumctl port update {} up\" writes it again\n",
        name);
  }
}

}  // namespace

void add_set(CLI::App &app, command_line &line) {
  CLI::App *command =
      app.add_subcommand("set", "Change settings of a port: in its module, and kept for good");
  auto name = std::make_shared<std::string>();
  auto settings = std::make_shared<std::vector<std::string>>();
  command->add_option("name", *name, "NAME or NAME:SUBPORT; sub-port 0 unless given")->required();
  command->add_option("setting", *settings, "FIELD=VALUE, FIELD being one of " + joined_fields())
      ->required()
      ->check(check_setting);
  finish(*command, line, [&line, name, settings] {
    target wanted = read_target(*name);
    for (const std::string &setting : *settings) {
      if (const auto wrong = read_setting(setting, wanted.body); !wrong.empty()) {
        return fail(exit_usage, wrong);
      }
    }
    return change(line, "/v1/ports/" + encoded(wanted.name) + "/settings", wanted.body,
                  print_stored);
  });
}

}  // namespace lumctl
