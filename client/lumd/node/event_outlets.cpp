#include "node/event_outlets.h"

#include <fmt/format.h>
#include <unistd.h>

#include "node/journal.h"
#include "node/log.h"
#include "words/names.h"

namespace lumd {
namespace {

std::string text_of_detail(const std::variant<bool, int64_t, std::string> &value) {
  if (const auto *is = std::get_if<bool>(&value)) return *is ? "true" : "false";
  if (const auto *number = std::get_if<int64_t>(&value)) return fmt::format("{}", *number);
  return std::get<std::string>(value);
}

}  // namespace

int priority_of(severity how_bad) {
  switch (how_bad) {
    case severity::critical:
      return 3;
    case severity::warning:
    case severity::unknown:
      return 4;
    case severity::ok:
      return 6;
  }
  return 6;
}

std::vector<std::pair<std::string, std::string>> facts_of(const told_event &one) {
  std::vector<std::pair<std::string, std::string>> facts = {
      {"node", one.node},
      {"event", one.of.kind},
      {"severity", std::string(name_of(lum_words::severities, one.of.how_bad))},
  };
  if (!one.is_many) {
    facts.emplace_back("number", fmt::format("{}", one.of.number));
    if (!one.of.port.empty()) facts.emplace_back("port", one.of.port);
    if (one.of.sub_port) facts.emplace_back("sub_port", fmt::format("{}", *one.of.sub_port));
  }
  if (one.of.left_out != 0) facts.emplace_back("left_out", fmt::format("{}", one.of.left_out));
  for (const auto &[name, value] : one.of.details) facts.emplace_back(name, text_of_detail(value));
  return facts;
}

event_outlets::event_outlets(const lum_linux::node_description &node)
    : is_journal_(is_journal(STDERR_FILENO)) {
  if (node.syslog_receiver) receiver_.emplace(*node.syslog_receiver);
}

void event_outlets::tell(const told_event &one) {
  const int priority = priority_of(one.of.how_bad);
  const auto facts = facts_of(one);
  if (!is_journal_ || !tell_journal(priority, one.text, facts)) say_at(priority, one.text);
  if (!receiver_) return;
  if (const auto said = receiver_->send(priority, one, facts); !said.empty()) say("{}", said);
}

}  // namespace lumd
