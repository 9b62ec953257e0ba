#include <fmt/format.h>

#include "commands/commands.h"
#include "printing/port_text.h"

namespace lumctl {
namespace {

struct one_port {
  std::string name;
  int page = -1;
};

void print_port(const json &port, const style &output) {
  fmt::print("{}", describe_port(port, output));
  if (port.contains("page")) fmt::print("{}", hex_dump(port.at("page")));
}

CLI::App *add_one(CLI::App &show_app, command_line &line, const char *name, const char *help,
                  const std::shared_ptr<one_port> &wanted, const std::string &path) {
  CLI::App *command = show_app.add_subcommand(name, help);
  command->add_option("name", wanted->name, "The port's name, or rack/slot/instance/port")
      ->required();
  command->add_flag("--json", line.as_json, "Print what the driver answered");
  command->callback([&line, wanted, path] {
    line.chosen = [&line, wanted, path] {
      std::string target = path + encoded(wanted->name);
      if (wanted->page >= 0) target += fmt::format("?page={}", wanted->page);
      return show(line, target, [&line](const json &port) { print_port(port, line.output); });
    };
  });
  return command;
}

}  // namespace

void add_show_port(CLI::App &show_app, command_line &line) {
  add_one(show_app, line, "port", "One port in full", std::make_shared<one_port>(), "/v1/ports/");
}

void add_show_module(CLI::App &show_app, command_line &line) {
  const auto wanted = std::make_shared<one_port>();
  CLI::App *command =
      add_one(show_app, line, "module", "The module in a port, and a page of its memory if asked",
              wanted, "/v1/modules/");
  command->add_option("--page", wanted->page, "Also dump this page of the module's memory")
      ->check(CLI::Range(0, 255));
}

}  // namespace lumctl
