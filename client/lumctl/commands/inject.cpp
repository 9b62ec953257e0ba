// Alarms and readings that are not the module's, for tests.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "base/sub_port_name.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "names.h"
#include "printing/port_cells.h"
#include "words/alarms.h"
#include "words/readings.h"

namespace lumctl {
namespace {

constexpr auto alarm_words = lum_words::with_everything(names_of(lum_words::alarms));
constexpr auto reading_words = lum_words::with_everything(names_of(lum_words::raisable_readings));

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
  return change(now, words, target, body, describe_injected, enough::accepted);
}

// Empty, or what is wrong with the text.
std::string check_where(const std::string &text) {
  const auto where = lum_client::read_sub_port_name(text);
  if (where && where->sub_port <= 1) return {};
  return "\"" + text + "\" is not a port's name with :0 or :1";
}

// `kind` is the command's own name and what the driver calls it.
int inject_one(const session &now, const given &words, const std::string &kind) {
  const auto where = lum_client::read_sub_port_name(words.text("where"));
  if (!where) return fail(exit_usage, check_where(words.text("where")));
  return inject(now, words, "/v1/inject/" + kind,
                {{"port", where->port},
                 {"sub_port", where->sub_port},
                 {kind, words.text("what")},
                 {"on", words.text("status") == on}});
}

command one(const std::string &name, const std::string &help, const std::string &what_help,
            std::span<const std::string_view> whats) {
  return {.name = name,
          .help = help,
          .arguments = {{"where", "NAME:SUBPORT, the sub-port of a port",
                         value{.names = known_names::sub_ports, .wrong = check_where}},
                        {"what", what_help, value{.words = as_words(whats)}},
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
  return {.name = "inject",
          .help = "Force alarms on or raise readings for a test; lumd needs --alarm-tests",
          .commands = {
              one("alarm", "Force an alarm of a sub-port on, or let it go",
                  fmt::format("The alarm: its name, its number, or {}", lum_words::everything),
                  alarm_words),
              one("readings", "Raise what is monitored of a sub-port's readings, or not",
                  fmt::format("{}, or {} to {}", listed(reading_words),
                              lum_words::first_readings_test_id, lum_words::every_readings_test_id),
                  reading_words),
              text}};
}

}  // namespace lumctl
