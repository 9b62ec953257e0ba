#include <fmt/format.h>

#include "commands/exchange.h"
#include "commands/sub_port_name.h"
#include "printing/port_cells.h"

namespace lumctl {
namespace {

struct injection {
  std::string where;
  std::string what;
  std::string status;
};

void print_injected(const json &reply) {
  std::string alarms;
  for (const json &name : reply.at("alarms")) {
    alarms += (alarms.empty() ? "" : ", ") + text_or_dash(name);
  }
  std::string offsets;
  for (const auto &[name, offset] : reply.at("offsets").items()) {
    offsets += fmt::format("{}{} +{}", offsets.empty() ? "" : ", ", name, offset.get<unsigned>());
  }
  fmt::print("{} sub-port {}: alarms forced on: {}; readings raised: {}\n",
             text_or_dash(reply.at("port")), reply.at("sub_port").get<unsigned>(),
             alarms.empty() ? "none" : alarms, offsets.empty() ? "none" : offsets);
  if (!reply.at("complete").get<bool>()) fmt::print("{}\n", text_or_dash(reply.at("reason")));
}

// What is injected shows later when the port has no readings yet: that is no failure.
int inject(const command_line &line, const std::string &target, const json &body) {
  return change(line, target, body, print_injected, false);
}

void add_one(CLI::App &parent, command_line &line, const char *name, const char *help,
             const char *what_help, const std::string &target) {
  const auto wanted = std::make_shared<injection>();
  CLI::App *command = parent.add_subcommand(name, help);
  command->add_option("where", wanted->where, "NAME:SUBPORT, the sub-port of a port")
      ->required()
      ->check(check_sub_port_name);
  command->add_option("what", wanted->what, what_help)->required();
  command->add_option("status", wanted->status, "on or off")
      ->required()
      ->check(CLI::IsMember({"on", "off"}));
  const std::string member = name;
  finish(*command, line, [&line, wanted, target, member] {
    const auto where = read_sub_port_name(wanted->where);
    if (!where) return fail(exit_usage, check_sub_port_name(wanted->where));
    return inject(line, target,
                  {{"port", where->port},
                   {"sub_port", where->sub_port},
                   {member, wanted->what},
                   {"on", wanted->status == "on"}});
  });
}

}  // namespace

void add_inject(CLI::App &app, command_line &line) {
  CLI::App *command = app.add_subcommand(
      "inject", "Force alarms on or raise readings for a test; lumd needs --alarm-tests");
  command->require_subcommand(0, 1);
  add_one(*command, line, "alarm", "Force an alarm of a sub-port on, or let it go",
          "The alarm: its name, its number, or all", "/v1/inject/alarm");
  add_one(*command, line, "readings", "Raise what is monitored of a sub-port's readings, or not",
          "reading-3, power-1, power-0, reading-4 or all, or 1 to 5", "/v1/inject/readings");
  const auto text = std::make_shared<std::string>();
  CLI::App *raw = command->add_subcommand("text", "Send the text of a test as it is");
  raw->add_option("text", *text, "ANYTHING#INTERFACE#TEST#ID#STATUS, numbers in hexadecimal")
      ->required();
  finish(*raw, line, [&line, text] { return inject(line, "/v1/inject/text", {{"text", *text}}); });
}

}  // namespace lumctl
