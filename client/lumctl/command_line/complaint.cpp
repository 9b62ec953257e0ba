#include "command_line/complaint.h"

#include <fmt/format.h>

#include "command_line/position.h"
#include "wording/nearest.h"

namespace lumctl {
namespace {

std::string unknown_command(const position &now, const std::string &word) {
  const std::vector<std::string> names = names_below(*now.at);
  const std::string whole = now.path.empty() ? word : now.path + " " + word;
  const std::string hint = lum_wording::did_you_mean(word, names);
  return fmt::format(
      "there is no command \"{}\"{}", whole,
      hint.empty() ? fmt::format(", expected one of {}", fmt::join(names, ", ")) : hint);
}

std::string unknown_option(const position &now, const std::string &word) {
  std::vector<std::string> names = {std::string("--") + help_option};
  if (now.at == now.lumctl) names.push_back(std::string("--") + version_option);
  for (const option *one : options_at(now)) names.push_back("--" + one->name);
  const std::string shown = word.substr(0, word.find('='));
  return fmt::format("{} has no option {}{}",
                     now.path.empty() ? now.lumctl->name : "\"" + now.path + "\"", shown,
                     lum_wording::did_you_mean(shown, names));
}

bool is_known_option(const position &now, const std::string &word) {
  if (word == "-h" || is_letter(now, word)) return true;
  const std::string_view name = name_of_option(word);
  return is_option(word) && (name == help_option || option_at(now, name) != nullptr ||
                             (now.at == now.lumctl && name == version_option));
}

// Either kind of option; a number below zero is none.
bool looks_like_option(const std::string &word) {
  return word.size() > 1 && word[0] == '-' && (word[1] < '0' || word[1] > '9');
}

std::string complaint_of(const position &now, const std::string &word) {
  if (now.waiting != nullptr) return {};
  if (looks_like_option(word)) {
    return is_known_option(now, word) ? "" : unknown_option(now, word);
  }
  position behind = now;
  pass(behind, word);
  if (behind.at != now.at || next_argument(now) != nullptr) return {};
  if (!now.at->commands.empty()) return unknown_command(now, word);
  return fmt::format("\"{}\" takes no further word, and \"{}\" is one", now.path, word);
}

}  // namespace

std::string complaint_of_words(const command &lumctl, const std::vector<std::string> &words) {
  position now = start_at(lumctl, {});
  for (const std::string &word : words) {
    if (word == "--") break;  // whatever follows is an argument
    if (std::string wrong = complaint_of(now, word); !wrong.empty()) return wrong;
    pass(now, word);
  }
  return {};
}

std::string complaint_of_missing(const command &lumctl, const std::vector<std::string> &words) {
  position now = start_at(lumctl, {});
  for (const std::string &word : words) pass(now, word);
  return fmt::format("a command is missing{}, expected one of {}",
                     now.path.empty() ? "" : " behind \"" + now.path + "\"",
                     fmt::join(names_below(*now.at), ", "));
}

}  // namespace lumctl
