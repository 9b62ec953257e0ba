// A port's settings.
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/exchange.h"
#include "names.h"
#include "printing/settings_text.h"
#include "wording/nearest.h"
#include "words/settings.h"

namespace lumctl {
namespace {

constexpr auto fields = names_of(lum_words::settings);

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
    return fmt::format("there is no setting \"{}\", expected one of {}{}", field,
                       listed(fields, ", "), lum_wording::did_you_mean(field, fields));
  }
  std::int64_t number = 0;
  if (!read_number(std::string_view(text).substr(equals + 1), number)) {
    return fmt::format("{} is \"{}\", expected a whole number of at most 32 bits", field,
                       text.substr(equals + 1));
  }
  const std::string member = lum_words::member_of(field);
  if (body.contains(member)) return fmt::format("{} is given twice", member);
  body[member] = number;
  return {};
}

std::string check_setting(const std::string &text) {
  json ignored = json::object();
  return read_setting(text, ignored);
}

int change_settings(const session &now, const given &words) {
  json body = json::object();
  for (const std::string &setting : words.texts("setting")) {
    if (const auto wrong = read_setting(setting, body); !wrong.empty()) {
      return fail(exit_usage, wrong);
    }
  }
  if (words.has("dry-run")) body["dry_run"] = true;
  return change(now, words, settings_path(words.text("name")), body, describe_change);
}

std::vector<std::string> setting_words() {
  std::vector<std::string> words;
  words.reserve(fields.size());
  for (const std::string_view field : fields) words.push_back(std::string(field) + "=");
  return words;
}

}  // namespace

command set_command() {
  return {.name = "set",
          .help = "Change settings of a port: in its module, and kept for good",
          .arguments = {{"name", "NAME or NAME:SUBPORT; sub-port 0 unless given",
                         value{.names = known_names::ports_and_sub_ports}},
                        {"setting", "FIELD=VALUE, FIELD being one of " + listed(fields, ", "),
                         value{.words = setting_words(), .wrong = check_setting}, true, true}},
          .options = {{"dry-run", "Only say what would change, as far as the driver takes it"}},
          .action = change_settings};
}

}  // namespace lumctl
