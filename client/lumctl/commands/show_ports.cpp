#include <fmt/format.h>

#include "commands/commands.h"
#include "printing/ports_table.h"

namespace lumctl {

void add_show_ports(CLI::App &show_app, command_line &line) {
  auto wide = std::make_shared<bool>(false);
  CLI::App *command = show_app.add_subcommand("ports", "Every port, with its module and readings");
  auto all = std::make_shared<bool>(false);
  command->add_flag("--all", *all, "Also ports that are described but do not exist");
  command->add_flag("--json", line.as_json, "Print what the driver answered");
  command->add_flag("--wide", *wide, "One line for each sub-port, whatever the terminal's width");
  command->callback([&line, wide, all] {
    line.chosen = [&line, wide, all] {
      return show(line, *all ? "/v1/ports" : "/v1/ports?existing",
                  [&line, wide](const json &answer) {
                    fmt::print("{}", describe_ports(answer.at("ports"), *wide, line.output));
                  });
    };
  });
}

}  // namespace lumctl
