// The shell's completion: the files that make a shell ask, and what it is answered.
#include "base/output.h"
#include "command_line/candidates.h"
#include "command_line/status.h"
#include "commands/commands.h"
#include "completion_files.h"

namespace lumctl {
namespace {

command shell(const std::string &name, const char *file) {
  return {.name = name,
          .help = "For " + name,
          .action =
              [file](const session &, const given &) {
                lum_client::print(file);
                return exit_done;
              },
          .asks = false};
}

int complete(const session &now, const given &words) {
  std::string lines;
  for (const std::string &word : candidates(all_commands(), now, words.texts("word"))) {
    lines += word + "\n";
  }
  lum_client::print(lines);
  return exit_done;
}

}  // namespace

command completion_commands() {
  return {.name = "completion",
          .help = "Print the shell's completion of this command line",
          .commands = {shell("bash", bash_completion), shell("zsh", zsh_completion),
                       shell("fish", fish_completion)},
          .asks = false};
}

command complete_command() {
  return {.name = "__complete",
          .help = "What the shell may offer for the last of the words",
          .arguments = {{"word", "Behind --: what follows lumctl, up to the word to be completed",
                         value{}, false, true}},
          .action = complete,
          .hidden = true,
          .asks = false};
}

}  // namespace lumctl
