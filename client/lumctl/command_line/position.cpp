#include "command_line/position.h"

#include <algorithm>

namespace lumctl {
namespace {

const command *command_below(const command &at, std::string_view name) {
  const auto found = std::find_if(at.commands.begin(), at.commands.end(),
                                  [&](const command &one) { return one.name == name; });
  return found == at.commands.end() ? nullptr : &*found;
}

// --name, or --name=value, which needs no further word.
void pass_option(position &now, std::string_view word) {
  const option *found = option_at(now, name_of_option(word));
  if (found == nullptr || !found->takes) return;
  const std::size_t equals = word.find('=');
  if (equals == std::string_view::npos) {
    now.waiting = found;
  } else {
    put_destination(now.driver, found->name, std::string(word.substr(equals + 1)));
  }
}

}  // namespace

void put_destination(destination &driver, std::string_view option, const std::string &text) {
  if (option == socket_option) driver.socket = text;
  if (option == url_option) driver.url = text;
  if (option == ca_option) driver.ca = text;
  if (option == cert_option) driver.certificate = text;
  if (option == key_option) driver.key = text;
}

position start_at(const command &lumctl, const destination &driver) {
  position start;
  start.lumctl = start.at = &lumctl;
  start.driver = driver;
  return start;
}

void pass(position &now, const std::string &word) {
  if (now.waiting != nullptr) {
    put_destination(now.driver, now.waiting->name, word);
    now.waiting = nullptr;
  } else if (is_option(word)) {
    pass_option(now, word);
  } else if (is_letter(now, word)) {
    // A flag: nothing stands behind it.
  } else if (const command *below = command_below(*now.at, word); below != nullptr) {
    now.at = below;
    now.path += (now.path.empty() ? "" : " ") + word;
    now.arguments = 0;
  } else {
    ++now.arguments;
  }
}

const argument *next_argument(const position &now) {
  const std::vector<argument> &all = now.at->arguments;
  if (now.arguments < all.size()) return &all[now.arguments];
  return !all.empty() && all.back().repeated ? &all.back() : nullptr;
}

std::vector<const option *> options_at(const position &now) {
  std::vector<const option *> found;
  for (const option &one : now.at->options) found.push_back(&one);
  if (now.at == now.lumctl || !now.at->asks) return found;
  for (const option &one : now.lumctl->options) found.push_back(&one);
  return found;
}

const option *option_at(const position &now, std::string_view name) {
  for (const option *one : options_at(now)) {
    if (one->name == name) return one;
  }
  return nullptr;
}

bool is_letter(const position &now, std::string_view word) {
  if (word.size() != 2 || word[0] != '-') return false;
  const auto options = options_at(now);
  return std::any_of(options.begin(), options.end(),
                     [&](const option *one) { return one->letter == word[1]; });
}

bool is_option(std::string_view word) { return word.starts_with("--"); }

std::string_view name_of_option(std::string_view word) {
  const std::string_view shown = word.substr(0, word.find('='));
  return shown.substr(std::min(shown.size(), std::string_view("--").size()));
}

std::vector<std::string> names_below(const command &at) {
  std::vector<std::string> names;
  for (const command &below : at.commands) {
    if (!below.hidden) names.push_back(below.name);
  }
  return names;
}

}  // namespace lumctl
