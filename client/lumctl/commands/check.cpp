// For monitoring systems: one line, and a status after the convention of their plugins.
#include <fmt/format.h>

#include <cctype>
#include <nlohmann/json.hpp>

#include "api/client.h"
#include "base/output.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "printing/port_cells.h"
#include "words/severities.h"

namespace lumctl {
namespace {

using lum_words::severity;

std::string in_capitals(std::string_view text) {
  std::string result;
  for (const char letter : text) {
    result += static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
  }
  return result;
}

std::string headline(severity how_bad, const std::string &text) {
  return fmt::format("LUM {} - {}", in_capitals(name_of(lum_words::severities, how_bad)), text);
}

// A bar would begin the figures.
std::string without_bars(std::string text) {
  for (char &letter : text) {
    if (letter == '|') letter = '/';
  }
  return text;
}

std::string describe_finding(const json &finding) {
  const std::string port =
      finding.at("port").is_null() ? "" : "port " + text_or_dash(finding.at("port")) + " ";
  return without_bars(fmt::format("{}{}: {}", port, text_or_dash(finding.at("kind")),
                                  text_or_dash(finding.at("reason"))));
}

std::string describe_findings(const json &health) {
  const json &findings = health.at("findings");
  if (findings.empty()) return "nothing is wrong";
  std::string text = describe_finding(findings.front());
  if (findings.size() > 1) text += fmt::format(", and {} more", findings.size() - 1);
  return text;
}

std::string figures(const json &health) {
  std::string text = fmt::format("ports={}", health.at("ports").get<unsigned>());
  for (const auto &[state, count] : health.at("port_states").items()) {
    text += fmt::format(" '{}'={}", state, count.get<unsigned>());
  }
  return text;
}

severity severity_of(const json &health) {
  for (const lum_words::named_severity &known : lum_words::severities) {
    if (health.at("status") == known.name) return known.id;
  }
  return severity::unknown;
}

int conclude(severity how_bad, const std::string &text) {
  lum_client::print(text + "\n");
  return static_cast<int>(how_bad);
}

int check(const session &now, const given &words) {
  const api_result answer = get(now.driver, "/v1/health", now.patience);
  if (answer.what != outcome::done) {
    return conclude(severity::critical, headline(severity::critical, answer.error));
  }
  try {
    const severity how_bad = severity_of(*answer.body);
    if (wants_json(words)) {
      return conclude(how_bad, answer.body->dump(2, ' ', false, json::error_handler_t::replace));
    }
    std::string text =
        headline(how_bad, describe_findings(*answer.body)) + " | " + figures(*answer.body);
    if (words.has("all")) {
      for (const json &one : answer.body->at("findings")) {
        text += fmt::format("\n{}: {}", text_or_dash(one.at("severity")), describe_finding(one));
      }
    }
    return conclude(how_bad, text);
  } catch (const json::exception &) {
    return conclude(severity::unknown,
                    headline(severity::unknown, "the driver's answer lacks something"));
  }
}

}  // namespace

command check_command() {
  return {
      .name = "check",
      .help = "How the node fares in one line: ends with 0 ok, 1 warning, 2 critical, 3 unknown",
      .options = {{"all", "Also a line for each finding"}},
      .action = check};
}

}  // namespace lumctl
