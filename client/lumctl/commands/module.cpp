#include <fmt/format.h>

#include <cstdint>
#include <filesystem>

#include "commands/exchange.h"
#include "printing/port_cells.h"

namespace lumctl {
namespace {

struct module_request {
  std::string name;
  json body = json::object();
};

void print_module(const json &reply) {
  const bool present = reply.at("present").get<bool>();
  fmt::print("{}: {}, faults: {}\n", text_or_dash(reply.at("name")),
             present ? "module present" : "no module", text_or_dash(reply.at("faults")));
}

// A command that acts on one module; its further options fill the request's body.
std::pair<CLI::App *, std::shared_ptr<module_request>> add_one(CLI::App &module, command_line &line,
                                                               const std::string &name,
                                                               const std::string &help,
                                                               const std::string &path) {
  CLI::App *command = module.add_subcommand(name, help);
  auto request = std::make_shared<module_request>();
  command->add_option("name", request->name, "The port's name, or rack/slot/instance/port")
      ->required();
  finish(*command, line, [&line, request, path] {
    return change(line, "/v1/modules/" + encoded(request->name) + "/" + path, request->body,
                  print_module);
  });
  return {command, request};
}

void add_insert(CLI::App &module, command_line &line) {
  const auto [command, request] =
      add_one(module, line, "insert", "Put the module back, or another one in", "insert");
  command->add_option_function<std::string>(
      "--description",
      [request = request](const std::string &file) {
        request->body["description"] = std::filesystem::absolute(file).string();
      },
      "A simulated module is made from this file, and takes the place of the one there");
}

void add_fault(CLI::App &module, command_line &line) {
  const auto [command, request] =
      add_one(module, line, "fault", "Let a module misbehave; docs/module-faults.md has the words",
              "faults");
  command
      ->add_option_function<std::vector<std::string>>(
          "script",
          [request = request](const std::vector<std::string> &words) {
            std::string script;
            for (const std::string &word : words) script += (script.empty() ? "" : ",") + word;
            request->body["script"] = script;
          },
          "Such as refuse-every=3,code=121 or hang; none takes it back")
      ->required();
}

void add_poke(CLI::App &module, command_line &line) {
  const auto [command, request] = add_one(
      module, line, "poke", "Change one byte of a module's memory, past its faults", "poke");
  for (const char *member : {"page", "offset", "value"}) {
    command
        ->add_option_function<std::uint32_t>(
            member,
            [request = request, member](std::uint32_t value) { request->body[member] = value; },
            "0 to 255, decimal or 0x hexadecimal")
        ->required();
  }
}

}  // namespace

void add_module(CLI::App &app, command_line &line) {
  CLI::App *module = app.add_subcommand("module", "Insert, remove and disturb modules");
  module->require_subcommand(1);
  add_insert(*module, line);
  add_one(*module, line, "remove", "Take the module out of its cage", "remove");
  add_fault(*module, line);
  add_one(*module, line, "release", "Let a transfer that hangs go on", "release");
  add_poke(*module, line);
}

}  // namespace lumctl
