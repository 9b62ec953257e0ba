// What an entity agent does to the library.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "base/sub_port_name.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "printing/port_cells.h"

namespace lumctl {
namespace {

std::string describe_answer(const json &reply) {
  std::string text;
  if (reply.contains("interface")) {
    const json &interface = reply.at("interface");
    text = fmt::format("{} (0x{:08x}): {}\n", text_or_dash(interface.at("name")),
                       interface.at("ifhandle").get<std::uint32_t>(),
                       reply.at("served").get<bool>() ? "served" : "not served");
  }
  const json &resync = reply.at("resync");
  return text + fmt::format("answer {} ({}); replay required 0x{:x}, resync {}\n",
                            reply.at("result").at("code").get<int>(),
                            text_or_dash(reply.at("result").at("text")),
                            resync.at("replay_required").get<unsigned>(),
                            resync.at("complete").get<bool>() ? "complete" : "not complete");
}

// An interface's own name, or a sub-port.
json body_of(const given &words) {
  json body = {{"admin", words.whole("admin", 1)}, {"state_ready", words.whole("state-ready", 1)}};
  if (words.whole("handle") != 0) body["ifhandle"] = words.whole("handle");
  if (const auto sub_port = lum_client::read_sub_port_name(words.text("name"))) {
    body["port"] = sub_port->port;
    body["sub_port"] = sub_port->sub_port;
  } else {
    body["interface"] = words.text("name");
  }
  return body;
}

command plain(const std::string &name, const std::string &help) {
  return {.name = name, .help = help, .action = [name](const session &now, const given &words) {
            return change(now, words, "/v1/entity-agent/" + name, json::object(), describe_answer);
          }};
}

command operation(const std::string &name, const std::string &help) {
  const value byte = {.kind = value_kind::whole, .within = limits{0, 255}};
  return {.name = name,
          .help = help,
          .arguments = {{"name", "NAME:SUBPORT, or the interface's own name",
                         value{.names = known_names::sub_ports}}},
          .options = {{"handle", "The interface's handle, instead of the interface manager's",
                       value{.kind = value_kind::whole}},
                      {"admin", "Admin status, 1 unless given", byte},
                      {"state-ready", "State-ready, 1 unless given", byte}},
          .action = [name](const session &now, const given &words) {
            return change(now, words, "/v1/entity-agent/interfaces/" + name, body_of(words),
                          describe_answer);
          }};
}

}  // namespace

command ea_commands() {
  return {.name = "ea",
          .help = "Do to the library what an entity agent does",
          .commands = {plain("connect", "An agent has connected"),
                       plain("resync-end", "A resync has ended"),
                       operation("create", "An interface has been created: record its handle"),
                       operation("update", "An interface has changed"),
                       operation("get-info", "Information on an interface is wanted"),
                       operation("delete", "An interface has been deleted")}};
}

}  // namespace lumctl
