#include <fmt/format.h>

#include "commands/commands.h"

namespace lumctl {
namespace {

// What may follow a command, made from the command line's own definition.
std::string words_after(const CLI::App &command) {
  std::string words;
  for (const CLI::App *sub : command.get_subcommands({})) words += sub->get_name() + " ";
  for (const CLI::Option *option : command.get_options()) {
    for (const std::string &name : option->get_lnames()) words += "--" + name + " ";
  }
  return words;
}

// One case for each path of commands: "show ports") words="..." ;;
std::string cases(const CLI::App &command, const std::string &path) {
  std::string text = fmt::format("    \"{}\") words=\"{}\" ;;\n", path, words_after(command));
  for (const CLI::App *sub : command.get_subcommands({})) {
    text += cases(*sub, path.empty() ? sub->get_name() : path + " " + sub->get_name());
  }
  return text;
}

std::string bash_completion(const CLI::App &app) {
  return "# bash completion of lumctl; source it, or save it below /etc/bash_completion.d\n"
         "_lumctl() {\n"
         "  local word path=\"\" words=\"\" skip=0\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
         "    if [ \"$skip\" = 1 ]; then skip=0; continue; fi\n"
         "    case \"$word\" in\n"
         "    --socket | --wait | --slot | --description | --page | --bins | --interval | \\\n"
         "    --count | --handle | --admin | --state-ready) skip=1 ;;\n"
         "    -*) ;;\n"
         "    *) path=\"${path:+$path }$word\" ;;\n"
         "    esac\n"
         "  done\n"
         "  case \"$path\" in\n" +
         cases(app, "") +
         "    \"port update \"*) words=\"up down --wait --json --help\" ;;\n"
         "    \"port delete \"*) words=\"--wait --json --help\" ;;\n"
         "    \"set \"*) words=\"threshold= p2-setting= mode= setting-a= setting-b= enable= sub1= "
         "--json\"\n"
         "      compopt -o nospace ;;\n"
         "    \"inject alarm \"*) words=\"flag-10 flag-12 flag-13 flag-49-a flag-49-b "
         "flag-64-high\"\n"
         "      words=\"$words flag-64-low all on off --json --help\" ;;\n"
         "    \"inject readings \"*)\n"
         "      words=\"reading-3 reading-4 power-0 power-1 all on off --json --help\" ;;\n"
         "    \"show port\"* | \"show module\"* | \"module \"*) words=\"--json --help\" ;;\n"
         "  esac\n"
         "  COMPREPLY=($(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\"))\n"
         "  case \"$path\" in\n"
         "  \"show port\" | \"show module\" | \"show pm\" | \"clear stats\" | \"port update\" | "
         "\"port delete\"* | set | \\\n"
         "    \"module insert\" | \"module remove\" | \"module fault\" | \"module release\" | \\\n"
         "    \"module poke\")\n"
         "    COMPREPLY+=($(compgen -W \"$(lumctl show ports --json 2>/dev/null |\n"
         "      sed -n 's/^      \"name\": \"\\(.*\\)\",$/\\1/p')\" -- "
         "\"${COMP_WORDS[COMP_CWORD]}\")) ;;\n"
         "  \"inject alarm\" | \"inject readings\" | \"ea create\" | \"ea update\" | \\\n"
         "    \"ea get-info\" | \"ea delete\")\n"
         "    COMPREPLY+=($(compgen -W \"$(lumctl show ports --json 2>/dev/null |\n"
         "      sed -n 's/^      \"name\": \"\\(.*\\)\",$/\\1:0 \\1:1/p')\" -- "
         "\"${COMP_WORDS[COMP_CWORD]}\"))\n"
         "  esac\n"
         "}\n"
         "complete -o default -F _lumctl lumctl\n";
}

}  // namespace

void add_completion(CLI::App &app, command_line &line) {
  CLI::App *command =
      app.add_subcommand("completion", "Print the shell's completion of this command line");
  command->require_subcommand(0, 1);
  command->add_subcommand("bash", "For bash")->callback([&app, &line] {
    line.chosen = [&app] {
      fmt::print("{}", bash_completion(app));
      return exit_done;
    };
  });
}

}  // namespace lumctl
