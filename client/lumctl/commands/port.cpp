#include <fmt/format.h>

#include <charconv>

#include "commands/exchange.h"
#include "printing/port_cells.h"

namespace lumctl {
namespace {

// Reads SLOT or SLOT/INSTANCE into a request's body; says what is wrong with it, or nothing.
std::string read_place(const std::string &text, json &body) {
  static constexpr const char *members[] = {"slot", "instance"};
  const char *at = text.data();
  const char *const end = at + text.size();
  for (const char *member : members) {
    unsigned number = 0;
    const auto [stop, error] = std::from_chars(at, end, number);
    if (error != std::errc()) break;
    body[member] = number;
    if (stop == end) return {};
    if (*stop != '/') break;
    at = stop + 1;
  }
  return fmt::format("\"{}\" is not SLOT or SLOT/INSTANCE", text);
}

std::string check_place(const std::string &text) {
  json ignored;
  return read_place(text, ignored);
}

void print_ports(const json &reply) {
  for (const json &port : reply.at("ports")) {
    std::string handles;
    for (const json &handle : port.at("ifhandles")) {
      handles += fmt::format(" 0x{:08x}", handle.get<std::uint32_t>());
    }
    fmt::print("{}: {}{}\n", text_or_dash(port.at("name")), text_or_dash(port.at("state")),
               handles);
  }
}

void add_create(CLI::App &port, command_line &line) {
  CLI::App *command = port.add_subcommand(
      "create", "Create the ports of a slot, or of one of its instances, that do not exist");
  auto place = std::make_shared<std::string>();
  command->add_option("slot", *place, "SLOT or SLOT/INSTANCE")->required()->check(check_place);
  const auto wanted = add_wait(*command);
  finish(*command, line, [&line, place, wanted] {
    json body = json::object();
    read_place(*place, body);
    return change(line, "/v1/ports/create", body, *wanted, print_ports);
  });
}

void add_delete(CLI::App &port, command_line &line) {
  CLI::App *command = port.add_subcommand("delete", "Delete ports, or all ports of a slot");
  auto names = std::make_shared<std::vector<std::string>>();
  auto place = std::make_shared<std::string>();
  CLI::Option *by_name = command->add_option("name", *names, "The ports' names");
  command->add_option("--slot", *place, "All ports of SLOT or SLOT/INSTANCE, which is closed")
      ->check(check_place)
      ->excludes(by_name);
  const auto wanted = add_wait(*command);
  finish(*command, line, [&line, names, place, wanted] {
    json body = json::object();
    if (names->empty() && place->empty()) {
      return fail(exit_usage, "port delete: expected the names of ports, or --slot; try --help");
    }
    if (names->empty()) {
      read_place(*place, body);
    } else {
      body["ports"] = *names;
    }
    return change(line, "/v1/ports/delete", body, *wanted, print_ports);
  });
}

void add_update(CLI::App &port, command_line &line) {
  CLI::App *command = port.add_subcommand(
      "update",
      "Send a port's controllers a new state; up also writes its settings into the module again");
  auto name = std::make_shared<std::string>();
  auto state = std::make_shared<std::string>();
  command->add_option("name", *name, "The port's name, or rack/slot/instance/port")->required();
  command->add_option("state", *state, "up or down")
      ->required()
      ->check(CLI::IsMember({"up", "down"}));
  const auto wanted = add_wait(*command);
  finish(*command, line, [&line, name, state, wanted] {
    return change(line, "/v1/ports/" + encoded(*name) + "/update", {{"state", *state}}, *wanted,
                  [state](const json &reply) {
                    if (!reply.at("complete").get<bool>()) return;
                    fmt::print("{}: {}\n", text_or_dash(reply.at("name")), *state);
                  });
  });
}

}  // namespace

void add_port(CLI::App &app, command_line &line) {
  CLI::App *port = app.add_subcommand("port", "Create, delete and update ports");
  port->require_subcommand(1);
  add_create(*port, line);
  add_delete(*port, line);
  add_update(*port, line);
}

}  // namespace lumctl
