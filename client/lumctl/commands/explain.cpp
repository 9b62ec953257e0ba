// What the names on the screens mean.
#include "words/explanations.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/output.h"
#include "command_line/status.h"
#include "commands/commands.h"
#include "printing/line.h"
#include "wording/nearest.h"
#include "words/alarms.h"
#include "words/events.h"
#include "words/findings.h"
#include "words/names.h"
#include "words/port_states.h"

namespace lumctl {
namespace {

using lum_words::explanation;
using lum_words::explanations;

constexpr auto names = lum_words::names_of(explanations);

template <typename Table>
constexpr bool explains_all(const Table &table) {
  return std::all_of(table.begin(), table.end(), [](const auto &row) {
    return std::find(names.begin(), names.end(), row.name) != names.end();
  });
}
static_assert(explains_all(lum_words::port_states), "a state has no explanation");
static_assert(explains_all(lum_words::alarms), "an alarm has no explanation");
static_assert(explains_all(lum_words::findings), "a finding has no explanation");
static_assert(explains_all(lum_words::events), "an event has no explanation");

int explain(const session &now, const given &words) {
  // "coming up" is two words on a command line.
  const std::string name = fmt::format("{}", fmt::join(words.texts("name"), " "));
  const auto found = std::find_if(explanations.begin(), explanations.end(),
                                  [&](const explanation &one) { return one.name == name; });
  if (found == explanations.end()) {
    return fail(exit_usage, fmt::format("there is nothing to explain of \"{}\"{}", name,
                                        lum_wording::did_you_mean(name, names)));
  }
  const std::string text =
      line("Name", std::string(found->name)) + line("Means", std::string(found->meaning)) +
      line("Look at", std::string(found->look_at)) + line("Do", std::string(found->remedy));
  lum_client::print(folded_lines(text, now.output));
  return exit_done;
}

}  // namespace

command explain_command() {
  return {
      .name = "explain",
      .help = "What a state, an alarm, a finding or an event means, what to look at, what to do",
      .arguments = {{"name", "As the screens have it: failing, flag-10, led-broken",
                     value{.words = {names.begin(), names.end()}}, true, true}},
      .action = explain,
      .asks = false};
}

}  // namespace lumctl
