#include "command_line/candidates.h"

#include <cstdint>
#include <nlohmann/json.hpp>

#include "api/client.h"
#include "command_line/position.h"
#include "terminal/printable.h"

namespace lumctl {
namespace {

constexpr std::chrono::milliseconds patience(1000);

void add_names(const json &port, known_names which, std::vector<std::string> &words) {
  if (which == known_names::slots) {
    std::string slot = std::to_string(port.at("slot").get<unsigned>());
    if (words.empty() || words.back() != slot) words.push_back(std::move(slot));
    return;
  }
  const std::string name = port.at("name").get<std::string>();
  if (which == known_names::ports || which == known_names::ports_and_sub_ports) {
    words.push_back(name);
  }
  if (which == known_names::ports) return;
  for (const json &sub_port : port.at("sub_ports")) {
    words.push_back(which == known_names::controllers
                        ? sub_port.at("ifname").get<std::string>()
                        : name + ":" + std::to_string(sub_port.at("sub_port").get<unsigned>()));
  }
}

// Names of the ports that exist, or numbers of the slots that are described, in the driver's order,
// when it tells them in time.
std::vector<std::string> names_from_driver(const destination &driver, known_names which) {
  std::vector<std::string> words;
  if (which == known_names::none) return words;
  const char *const target = which == known_names::slots ? "/v1/ports" : "/v1/ports?existing";
  const api_result answer = get(driver, target, patience);
  if (answer.what != outcome::done) return words;
  try {
    for (const json &port : answer.body->at("ports")) add_names(port, which, words);
  } catch (const json::exception &) {
    words.clear();
  }
  return words;
}

std::vector<std::string> values_of(const value &takes, const destination &driver) {
  std::vector<std::string> words = takes.words;
  for (std::string &name : names_from_driver(driver, takes.names)) words.push_back(std::move(name));
  return words;
}

// "--name=value" as one word.
std::vector<std::string> assignments(const position &now, std::string_view word) {
  const option *found = option_at(now, name_of_option(word));
  if (found == nullptr || !found->takes) return {};
  std::vector<std::string> words = values_of(*found->takes, now.driver);
  for (std::string &one : words) one.insert(0, word.substr(0, word.find('=') + 1));
  return words;
}

// What may go on a list: every word of it behind the parts that stand already.
void go_on_list(std::string_view last, std::vector<std::string> &words) {
  const std::size_t comma = last.rfind(',');
  if (comma == std::string_view::npos) return;
  for (std::string &word : words) word.insert(0, last.substr(0, comma + 1));
}

std::vector<std::string> values_waited_for(const position &now, std::string_view last) {
  const value &takes = *now.waiting->takes;
  std::vector<std::string> words = values_of(takes, now.driver);
  if (takes.list) go_on_list(last, words);
  return words;
}

std::vector<std::string> words_at(const position &now, std::string_view last) {
  if (now.waiting != nullptr) return values_waited_for(now, last);
  if (is_option(last) && last.find('=') != std::string_view::npos) return assignments(now, last);
  if (!now.at->commands.empty() && now.arguments > 0) return {};  // no such command
  std::vector<std::string> words = names_below(*now.at);
  if (const argument *next = next_argument(now); next != nullptr) {
    words = values_of(next->takes, now.driver);
  }
  for (const option *one : options_at(now)) words.push_back("--" + one->name);
  words.push_back(std::string("--") + help_option);
  if (now.at == now.lumctl) words.push_back(std::string("--") + version_option);
  return words;
}

}  // namespace

std::vector<std::string> candidates(const command &lumctl, const session &now,
                                    const std::vector<std::string> &words) {
  position reached = start_at(lumctl, now.driver);
  const std::string last = words.empty() ? "" : words.back();
  for (std::size_t i = 0; i + 1 < words.size(); ++i) pass(reached, words[i]);

  std::vector<std::string> offered = words_at(reached, last);
  // Of "mode=" the shell can make no more.
  std::erase_if(offered, [&](const std::string &word) {
    return !word.starts_with(last) || (word == last && word.ends_with('=')) ||
           printable(word) != word;
  });
  return offered;
}

}  // namespace lumctl
