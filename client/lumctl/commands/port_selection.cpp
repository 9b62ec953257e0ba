#include "commands/port_selection.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands/place.h"
#include "names.h"
#include "printing/port_columns.h"
#include "printing/port_order.h"
#include "wording/numbers.h"
#include "words/port_states.h"

namespace lumctl {
namespace {

constexpr auto state_names = lum_words::names_of(lum_words::port_states);

bool has(const std::vector<std::string> &words, const std::string &word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

std::string position_of(const json &port) {
  return find_port_column("position")->cell_of(port).text;
}

bool is_named(const json &port, const std::string &name) {
  return port.at("name") == name || position_of(port) == name;
}

bool is_in(const std::string &text, const json &port) {
  json place = json::object();
  if (!text.empty()) read_place(text, place);
  return std::all_of(place.items().begin(), place.items().end(),
                     [&port](const auto &part) { return port.at(part.key()) == part.value(); });
}

std::string in_small_letters(std::string text) {
  for (char &letter : text) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return text;
}

// In what is shown of the port as text.
bool shows(const json &port, const std::string &part) {
  const std::string wanted = in_small_letters(part);
  const auto &columns = port_columns();
  return std::any_of(columns.begin(), columns.end(), [&](const port_column &one) {
    return !one.number_of &&
           in_small_letters(one.cell_of(port).text).find(wanted) != std::string::npos;
  });
}

bool is_wanted(const json &port, const port_selection &wanted) {
  const auto named = [&port](const std::string &name) { return is_named(port, name); };
  return (wanted.names.empty() || std::any_of(wanted.names.begin(), wanted.names.end(), named)) &&
         (wanted.states.empty() || has(wanted.states, port.at("state").get<std::string>())) &&
         is_in(wanted.place, port) && (wanted.filter.empty() || shows(port, wanted.filter));
}

// The driver's own words about a name that is none of its ports'.
api_result complaint_about(const session &now, const std::string &name) {
  api_result result = get(now.driver, "/v1/ports/" + encoded(name), now.patience);
  if (result.what != outcome::done) return result;
  return {outcome::refused, nullptr,
          fmt::format("\"{}\" is not the name of a whole port: expected NAME without a sub-port",
                      name)};
}

}  // namespace

bool port_selection::is_partial() const {
  return !names.empty() || !states.empty() || !place.empty() || !filter.empty();
}

argument selected_names() {
  return {"name", "Only these ports: names, or rack/slot/instance/port",
          value{.names = known_names::ports}, false, true};
}

std::vector<option> selection_options() {
  return {{"all", "Also ports that are described but do not exist"},
          {"state", "Only ports in one of these states",
           value{.words = as_words(state_names), .only_words = true, .list = true}},
          {"slot", "Only ports of SLOT or SLOT/INSTANCE", value{.wrong = check_place}},
          {"sort", "By this column, or the worst ports first; numbers from the largest down",
           value{.words = port_orders(), .only_words = true}},
          {"reverse", "Turns the order around"}};
}

port_selection selection_of(const given &words) {
  port_selection wanted;
  wanted.names = words.texts("name");
  if (words.has("state")) wanted.states = parts_of(words.text("state"));
  wanted.place = words.text("slot");
  wanted.also_absent = words.has("all") || !wanted.names.empty() || has(wanted.states, "absent");
  wanted.order = words.text("sort");
  wanted.reversed = words.has("reverse");
  return wanted;
}

std::vector<option> form_options() {
  return {{"brief", "One line for each port, whatever their number", {}, {}, 'b'},
          {"full", "Everything about each port, whatever their number"},
          {"wide", "One line for each sub-port, whatever the terminal's width"},
          {"columns", "One line for each port, with these columns",
           value{.words = port_column_names(), .only_words = true, .list = true}}};
}

std::string form_given_twice(const given &words) {
  int forms = 0;
  for (const option &one : form_options()) forms += words.has(one.name) ? 1 : 0;
  return forms < 2 ? "" : "only one of --brief, --full, --wide and --columns may stand; try --help";
}

ports_wish wish_of(const given &words) {
  ports_wish wish;
  if (words.has("columns")) wish.columns = parts_of(words.text("columns"));
  if (words.has("brief")) wish.form = ports_form::brief;
  if (words.has("full")) wish.form = ports_form::full;
  if (words.has("wide")) wish.form = ports_form::wide;
  return wish;
}

api_result ask_for_ports(const session &now, const port_selection &wanted) {
  api_result result =
      get(now.driver, wanted.also_absent ? "/v1/ports" : "/v1/ports?existing", now.patience);
  if (result.what != outcome::done) return result;
  const json &ports = result.body->at("ports");
  for (const std::string &name : wanted.names) {
    const auto named = [&name](const json &port) { return is_named(port, name); };
    if (std::none_of(ports.begin(), ports.end(), named)) return complaint_about(now, name);
  }
  return result;
}

std::size_t select_ports(json &answer, const port_selection &wanted) {
  json &ports = answer.at("ports");
  const std::size_t of = ports.size();
  json kept = json::array();
  for (json &port : ports) {
    if (is_wanted(port, wanted)) kept.push_back(std::move(port));
  }
  sort_ports(kept, wanted.order, wanted.reversed);
  ports = std::move(kept);
  return of;
}

std::string describe_selection(const json &answer, const port_selection &wanted, std::size_t of) {
  if (!wanted.is_partial() || !answer.at("ports").empty()) return {};
  return fmt::format("none of {} is selected\n", lum_wording::counted(of, "port"));
}

}  // namespace lumctl
