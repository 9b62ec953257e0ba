// Ports come and go, and are told a state.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "base/output.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "commands/place.h"
#include "names.h"
#include "printing/port_cells.h"
#include "printing/settings_text.h"
#include "words/controller_states.h"

namespace lumctl {
namespace {

std::string describe_changed(const json &reply) {
  std::string text;
  for (const json &port : reply.at("ports")) {
    text += fmt::format("{}: {}", text_or_dash(port.at("name")), text_or_dash(port.at("state")));
    for (const json &handle : port.at("ifhandles")) {
      const auto number = handle.get<std::uint32_t>();
      text += number == 0 ? " -" : fmt::format(" 0x{:08x}", number);
    }
    text += "\n";
  }
  return text;
}

int create_ports(const session &now, const given &words) {
  json body = json::object();
  read_place(words.text("slot"), body);
  return change_and_wait(now, words, "/v1/ports/create", body, describe_changed);
}

// Says on standard error which settings a deletion drops, or prints that it was only to be looked
// at. Returns the exit status, nothing when the deletion is to go on.
std::optional<int> look_at_deletion(const session &now, const given &words, json body) {
  body["dry_run"] = true;
  const api_result plan = post(now.driver, "/v1/ports/delete", body, now.patience);
  if (plan.what != outcome::done) return fail_for(plan);
  const bool is_all = words.has("dry-run");
  try {
    const std::vector<std::string> dropped = describe_dropped(*plan.body);
    if (is_all && wants_json(words)) {
      print_as_json(*plan.body);
    } else if (is_all) {
      std::string text;
      for (const json &port : plan.body->at("ports")) {
        text += "would delete port " + text_or_dash(port) + "\n";
      }
      for (const std::string &one : dropped) text += "would drop " + one + "\n";
      lum_client::print(text);
    } else {
      for (const std::string &one : dropped) fail(exit_done, "the deletion drops " + one);
    }
  } catch (const json::exception &) {
    return fail_for_missing_member();
  }
  return is_all ? std::optional(exit_done) : std::nullopt;
}

int delete_ports(const session &now, const given &words) {
  json body = json::object();
  if (words.has("name")) {
    body["ports"] = words.texts("name");
  } else if (words.has("slot")) {
    read_place(words.text("slot"), body);
  } else {
    return fail(exit_usage, "port delete: expected the names of ports, or --slot; try --help");
  }
  if (const auto ended = look_at_deletion(now, words, body)) return *ended;
  return change_and_wait(now, words, "/v1/ports/delete", body, describe_changed);
}

int update_port(const session &now, const given &words) {
  const std::string state = words.text("state");
  const printer print = [&state](const json &reply) -> std::string {
    if (reply.contains("pending")) return "not answered yet\n";
    if (!reply.at("complete").get<bool>()) return {};
    std::string text = fmt::format("{}: {}\n", text_or_dash(reply.at("name")), state);
    if (reply.at("module_written") == false) {
      text += "not all of the settings have reached the module; once it answers, the same again\n";
    }
    return text;
  };
  return change_and_wait(now, words, "/v1/ports/" + encoded(words.text("name")) + "/update",
                         {{"state", state}}, print);
}

}  // namespace

command port_commands() {
  const command create = {
      .name = "create",
      .help = "Create the ports of a slot, or of one of its instances, that do not exist",
      .arguments = {{"slot", "SLOT or SLOT/INSTANCE",
                     value{.names = known_names::slots, .wrong = check_place}}},
      .options = {wait_option()},
      .action = create_ports};
  const command remove = {
      .name = "delete",
      .help = "Delete ports, or all ports of a slot",
      .arguments = {{"name", "The ports' names", value{.names = known_names::ports}, false, true}},
      .options = {{"slot", "All ports of SLOT or SLOT/INSTANCE, which is closed",
                   value{.names = known_names::slots, .wrong = check_place}, "name"},
                  {"dry-run", "Only say what would be deleted, and which settings with it"},
                  wait_option()},
      .action = delete_ports};
  const command update = {
      .name = "update",
      .help =
          "Send a port's controllers a new state; up also writes its settings into the module "
          "again",
      .arguments = {port_name(),
                    {"state", listed(lum_words::controller_states),
                     value{.words = as_words(lum_words::controller_states), .only_words = true}}},
      .options = {wait_option()},
      .action = update_port};
  return {.name = "port",
          .help = "Create, delete and update ports",
          .commands = {create, remove, update}};
}

}  // namespace lumctl
