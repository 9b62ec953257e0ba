#include <fmt/format.h>

#include "commands/exchange.h"
#include "commands/sub_port_name.h"
#include "printing/port_cells.h"

namespace lumctl {
namespace {

struct agent_request {
  std::string name;
  std::uint32_t ifhandle = 0;
  unsigned admin = 1;
  unsigned state_ready = 1;
};

void print_answer(const json &reply) {
  if (reply.contains("interface")) {
    const json &interface = reply.at("interface");
    fmt::print("{} (0x{:08x}): {}\n", text_or_dash(interface.at("name")),
               interface.at("ifhandle").get<std::uint32_t>(),
               reply.at("served").get<bool>() ? "served" : "not served");
  }
  const json &resync = reply.at("resync");
  fmt::print("answer {} ({}); replay required 0x{:x}, resync {}\n",
             reply.at("result").at("code").get<int>(), text_or_dash(reply.at("result").at("text")),
             resync.at("replay_required").get<unsigned>(),
             resync.at("complete").get<bool>() ? "complete" : "not complete");
}

// An interface's own name, or a sub-port.
json body_of(const agent_request &wanted) {
  json body = {{"admin", wanted.admin}, {"state_ready", wanted.state_ready}};
  if (wanted.ifhandle != 0) body["ifhandle"] = wanted.ifhandle;
  if (const auto sub_port = read_sub_port_name(wanted.name)) {
    body["port"] = sub_port->port;
    body["sub_port"] = sub_port->sub_port;
  } else {
    body["interface"] = wanted.name;
  }
  return body;
}

void add_plain(CLI::App &parent, command_line &line, const char *name, const char *help) {
  CLI::App *command = parent.add_subcommand(name, help);
  const std::string target = std::string("/v1/entity-agent/") + name;
  finish(*command, line,
         [&line, target] { return change(line, target, json::object(), print_answer); });
}

void add_operation(CLI::App &parent, command_line &line, const char *name, const char *help) {
  const auto wanted = std::make_shared<agent_request>();
  CLI::App *command = parent.add_subcommand(name, help);
  command->add_option("name", wanted->name, "NAME:SUBPORT, or the interface's own name")
      ->required();
  command->add_option("--handle", wanted->ifhandle,
                      "The interface's handle, instead of the interface manager's");
  command->add_option("--admin", wanted->admin, "Admin status, 1 unless given")
      ->check(CLI::Range(0, 255));
  command->add_option("--state-ready", wanted->state_ready, "State-ready, 1 unless given")
      ->check(CLI::Range(0, 255));
  const std::string target = std::string("/v1/entity-agent/interfaces/") + name;
  finish(*command, line,
         [&line, target, wanted] { return change(line, target, body_of(*wanted), print_answer); });
}

}  // namespace

void add_ea(CLI::App &app, command_line &line) {
  CLI::App *command = app.add_subcommand("ea", "Do to the library what an entity agent does");
  command->require_subcommand(0, 1);
  add_plain(*command, line, "connect", "An agent has connected");
  add_plain(*command, line, "resync-end", "A resync has ended");
  add_operation(*command, line, "create", "An interface has been created: record its handle");
  add_operation(*command, line, "update", "An interface has changed");
  add_operation(*command, line, "get-info", "Information on an interface is wanted");
  add_operation(*command, line, "delete", "An interface has been deleted");
}

}  // namespace lumctl
