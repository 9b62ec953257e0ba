// Modules are inserted, removed and disturbed.
#include <fmt/format.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "api/client.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "names.h"
#include "printing/port_cells.h"
#include "words/module_faults.h"

namespace lumctl {
namespace {

std::string describe_module(const json &reply) {
  const bool present = reply.at("present").get<bool>();
  return fmt::format("{}: {}, faults: {}\n", text_or_dash(reply.at("name")),
                     present ? "module present" : "no module", text_or_dash(reply.at("faults")));
}

int change_module(const session &now, const given &words, const char *path, const json &body) {
  return change(now, words, "/v1/modules/" + encoded(words.text("name")) + "/" + path, body,
                describe_module);
}

int insert_module(const session &now, const given &words) {
  json body = json::object();
  if (words.has("description")) {
    body["description"] = std::filesystem::absolute(words.text("description")).string();
  }
  return change_module(now, words, "insert", body);
}

int remove_module(const session &now, const given &words) {
  return change_module(now, words, "remove", json::object());
}

int set_faults(const session &now, const given &words) {
  std::string script;
  for (const std::string &word : words.texts("script")) {
    script += (script.empty() ? "" : ",") + word;
  }
  return change_module(now, words, "faults", {{"script", script}});
}

int release_module(const session &now, const given &words) {
  return change_module(now, words, "release", json::object());
}

int set_line(const session &now, const given &words, const char *path) {
  return change_module(now, words, path, {{"on", words.text("state") == "on"}});
}

int set_reset(const session &now, const given &words) { return set_line(now, words, "reset"); }

int set_low_power(const session &now, const given &words) {
  return set_line(now, words, "low-power");
}

int poke_module(const session &now, const given &words) {
  json body = json::object();
  for (const char *member : {"page", "offset", "value"}) body[member] = words.whole(member);
  return change_module(now, words, "poke", body);
}

argument byte(const char *name) {
  return {name, "0 to 255, decimal or 0x hexadecimal", value{.kind = value_kind::whole}};
}

argument fault_script() {
  std::vector<std::string> words = as_words(lum_words::module_faults);
  words.emplace_back(lum_words::no_module_fault);
  return {"script", "Such as refuse-every=3,code=121 or hang; none takes it back",
          value{.words = words}, true, true};
}

argument line_state() {
  return {"state", "on or off", value{.words = {"on", "off"}, .only_words = true}};
}

}  // namespace

command module_commands() {
  const command insert = {
      .name = "insert",
      .help = "Put the module back, or another one in",
      .arguments = {port_name()},
      .options = {{"description",
                   "A simulated module is made from this file, and takes the place of the one "
                   "there",
                   value{}}},
      .action = insert_module};
  const command remove = {.name = "remove",
                          .help = "Take the module out of its cage",
                          .arguments = {port_name()},
                          .action = remove_module};
  const command fault = {.name = "fault",
                         .help = "Let a module misbehave; docs/module-faults.md has the words",
                         .arguments = {port_name(), fault_script()},
                         .action = set_faults};
  const command release = {.name = "release",
                           .help = "Let a transfer that hangs go on",
                           .arguments = {port_name()},
                           .action = release_module};
  const command reset = {.name = "reset",
                         .help = "Hold a module in reset, or let it go",
                         .arguments = {port_name(), line_state()},
                         .action = set_reset};
  const command low_power = {.name = "low-power",
                             .help = "Hold a module in low power, or let it go",
                             .arguments = {port_name(), line_state()},
                             .action = set_low_power};
  const command poke = {.name = "poke",
                        .help = "Change one byte of a module's memory, past its faults",
                        .arguments = {port_name(), byte("page"), byte("offset"), byte("value")},
                        .action = poke_module};
  return {.name = "module",
          .help = "Insert, remove, reset and disturb modules",
          .commands = {insert, remove, fault, release, reset, low_power, poke}};
}

}  // namespace lumctl
