// Alarms and readings that are not the module's, for tests.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/exchange.h"
#include "commands/sub_port_name.h"
#include "names.h"
#include "printing/port_cells.h"
#include "words/alarms.h"
#include "words/readings.h"

namespace lumctl {
namespace {

constexpr auto readings = names_of(lum_words::raisable_readings);

std::string describe_injected(const json &reply) {
  std::string alarms;
  for (const json &name : reply.at("alarms")) {
    alarms += (alarms.empty() ? "" : ", ") + text_or_dash(name);
  }
  std::string offsets;
  for (const auto &[name, offset] : reply.at("offsets").items()) {
    offsets += fmt::format("{}{} +{}", offsets.empty() ? "" : ", ", name, offset.get<unsigned>());
  }
  std::string text =
      fmt::format("{} sub-port {}: alarms forced on: {}; readings raised: {}\n",
                  text_or_dash(reply.at("port")), reply.at("sub_port").get<unsigned>(),
                  alarms.empty() ? "none" : alarms, offsets.empty() ? "none" : offsets);
  if (!reply.at("complete").get<bool>()) text += text_or_dash(reply.at("reason")) + "\n";
  return text;
}

// What is injected shows later when the port has no readings yet: that is no failure.
int inject(const session &now, const given &words, const std::string &target, const json &body) {
  return change(now, words, target, body, describe_injected, false);
}

// `kind` is the command's own name and what the driver calls it.
int inject_one(const session &now, const given &words, const std::string &kind) {
  const auto where = read_sub_port_name(words.text("where"));
  if (!where) return fail(exit_usage, check_sub_port_name(words.text("where")));
  return inject(now, words, "/v1/inject/" + kind,
                {{"port", where->port},
                 {"sub_port", where->sub_port},
                 {kind, words.text("what")},
                 {"on", words.text("status") == on}});
}

command one(const std::string &name, const std::string &help, const std::string &what_help,
            std::span<const std::string_view> names) {
  std::vector<std::string> offered = as_words(names);
  offered.emplace_back(lum_words::everything);
  return {.name = name,
          .help = help,
          .arguments = {{"where", "NAME:SUBPORT, the sub-port of a port",
                         value{.names = known_names::sub_ports, .wrong = check_sub_port_name}},
                        {"what", what_help, value{.words = offered}},
                        {"status", listed(switch_states),
                         value{.words = as_words(switch_states), .only_words = true}}},
          .action = [name](const session &now, const given &words) {
            return inject_one(now, words, name);
          }};
}

int inject_text(const session &now, const given &words) {
  return inject(now, words, "/v1/inject/text", {{"text", words.text("text")}});
}

}  // namespace

command inject_commands() {
  const command text = {
      .name = "text",
      .help = "Send the text of a test as it is",
      .arguments = {{"text", "ANYTHING#INTERFACE#TEST#ID#STATUS, numbers in hexadecimal"}},
      .action = inject_text};
  return {
      .name = "inject",
      .help = "Force alarms on or raise readings for a test; lumd needs --alarm-tests",
      .commands = {
          one("alarm", "Force an alarm of a sub-port on, or let it go",
              fmt::format("The alarm: its name, its number, or {}", lum_words::everything),
              names_of(lum_words::alarms)),
          one("readings", "Raise what is monitored of a sub-port's readings, or not",
              fmt::format("{} or {}, or {} to {}", listed(readings, ", "), lum_words::everything,
                          lum_words::first_readings_test_id, lum_words::every_readings_test_id),
              readings),
          text}};
}

}  // namespace lumctl
