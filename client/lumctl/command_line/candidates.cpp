#include "command_line/candidates.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "api/client.h"
#include "terminal/printable.h"

namespace lumctl {
namespace {

constexpr std::chrono::milliseconds patience(1000);

// Where a command line has got to.
struct position {
  const command *at = nullptr;
  std::size_t arguments = 0;        // that stand behind it
  const option *waiting = nullptr;  // for its value
  std::string socket;
};

template <typename Record>
const Record *named(const std::vector<Record> &records, std::string_view name) {
  const auto found = std::find_if(records.begin(), records.end(),
                                  [&](const Record &one) { return one.name == name; });
  return found == records.end() ? nullptr : &*found;
}

bool is_option(std::string_view word) { return word.starts_with("--"); }

// --name, or --name=value, which needs no further word.
void pass_option(position &now, std::string_view word) {
  const std::size_t equals = word.find('=');
  const option *found = named(now.at->options, word.substr(2, equals - 2));
  if (found == nullptr || !found->takes) return;
  if (equals == std::string_view::npos) {
    now.waiting = found;
  } else if (found->name == socket_option) {
    now.socket = word.substr(equals + 1);
  }
}

void pass(position &now, const std::string &word) {
  if (now.waiting != nullptr) {
    if (now.waiting->name == socket_option) now.socket = word;
    now.waiting = nullptr;
  } else if (is_option(word)) {
    pass_option(now, word);
  } else if (const command *below = named(now.at->commands, word); below != nullptr) {
    now.at = below;
    now.arguments = 0;
  } else {
    ++now.arguments;
  }
}

void add_names(const json &port, known_names which, std::vector<std::string> &words) {
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

// Names of the ports that exist, when the driver tells them in time.
std::vector<std::string> names_from_driver(const std::string &socket, known_names which) {
  std::vector<std::string> words;
  if (which == known_names::none) return words;
  const api_result answer = get(socket, "/v1/ports?existing", patience);
  if (answer.what != outcome::done) return words;
  try {
    for (const json &port : answer.body->at("ports")) add_names(port, which, words);
  } catch (const json::exception &) {
    words.clear();
  }
  return words;
}

std::vector<std::string> values_of(const value &takes, const std::string &socket) {
  std::vector<std::string> words = takes.words;
  for (std::string &name : names_from_driver(socket, takes.names)) words.push_back(std::move(name));
  return words;
}

// The argument that stands next; the last one may stand again.
const argument *next_argument(const position &now) {
  const std::vector<argument> &all = now.at->arguments;
  if (now.arguments < all.size()) return &all[now.arguments];
  return !all.empty() && all.back().repeated ? &all.back() : nullptr;
}

// "--name=value" as one word.
std::vector<std::string> assignments(const position &now, std::string_view word) {
  const std::string_view shown = word.substr(0, word.find('=') + 1);
  const option *found = named(now.at->options, shown.substr(2, shown.size() - 3));
  if (found == nullptr || !found->takes) return {};
  std::vector<std::string> words = values_of(*found->takes, now.socket);
  for (std::string &one : words) one.insert(0, shown);
  return words;
}

std::vector<std::string> words_at(const position &now, std::string_view last,
                                  const command &lumctl) {
  if (now.waiting != nullptr) return values_of(*now.waiting->takes, now.socket);
  if (is_option(last) && last.find('=') != std::string_view::npos) return assignments(now, last);
  std::vector<std::string> words;
  if (!now.at->commands.empty() && now.arguments > 0) return words;  // no such command
  for (const command &below : now.at->commands) {
    if (!below.hidden) words.push_back(below.name);
  }
  if (const argument *next = next_argument(now); next != nullptr) {
    words = values_of(next->takes, now.socket);
  }
  for (const option &one : now.at->options) words.push_back("--" + one.name);
  words.push_back(std::string("--") + help_option);
  if (now.at == &lumctl) words.push_back(std::string("--") + version_option);
  return words;
}

}  // namespace

std::vector<std::string> candidates(const command &lumctl, const session &now,
                                    const std::vector<std::string> &words) {
  position reached;
  reached.at = &lumctl;
  reached.socket = now.socket;
  const std::string last = words.empty() ? "" : words.back();
  for (std::size_t i = 0; i + 1 < words.size(); ++i) pass(reached, words[i]);

  std::vector<std::string> offered = words_at(reached, last, lumctl);
  // Of "mode=" the shell can make no more.
  std::erase_if(offered, [&](const std::string &word) {
    return !word.starts_with(last) || (word == last && word.ends_with('=')) ||
           printable(word) != word;
  });
  return offered;
}

}  // namespace lumctl
