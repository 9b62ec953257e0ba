#include "printing/alarms_table.h"

#include <fmt/format.h>

#include <algorithm>

#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/polling_text.h"
#include "printing/port_cells.h"
#include "wording/numbers.h"

namespace lumctl {
namespace {

std::string raised_text(const json &interface) {
  std::string text;
  if (interface.at("raised").is_null()) return "not known yet";
  const json &injected = interface.at("injected");
  for (const json &name : interface.at("raised")) {
    const bool forced = std::find(injected.begin(), injected.end(), name) != injected.end();
    text += fmt::format("{}{}{}", text.empty() ? "" : ", ", text_or_dash(name), forced ? "*" : "");
  }
  return text.empty() ? "-" : text;
}

std::string counted_text(const json &counts) {
  std::string text;
  for (const auto &[name, count] : counts.items()) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", name, count.get<std::uint64_t>());
  }
  return text.empty() ? "-" : text;
}

std::string age_or_dash(const json &interface, const char *name) {
  return interface.contains(name) ? number_or_dash(interface.at(name), 0) : "-";
}

// The alarms stand last, for they may be many.
record alarm_record(const json &interface) {
  const json &counters = interface.at("counters");
  const std::string raised = raised_text(interface);
  record result;
  result.lines = {{{{text_or_dash(interface.at("port")), colour::strong},
                    {fmt::format("{}", interface.at("sub_port").get<unsigned>())},
                    {text_or_dash(interface.at("ifname"))},
                    {age_or_dash(interface, "changed_age_s")},
                    {fmt::format("{}", counters.at("bitmap_changes").get<std::uint64_t>())},
                    {fmt::format("{}", counters.at("publishes").get<std::uint64_t>())},
                    {counted_text(counters.at("raised"))},
                    {age_or_dash(interface, "alarms_age_s")},
                    {raised, interface.at("raised").empty() ? colour::none : colour::bad}}}};
  if (raised.find('*') != std::string::npos) result.note = "* is injected by a test";
  if (interface.contains("waiting") && interface.at("waiting").get<bool>()) {
    result.note = "this was known before the last poll was cleared; the next one renews it";
  }
  if (interface.at("inserted") == false && !interface.at("raised").is_null())
    result.note = "no module; this is what was known last";
  return result;
}

table lay_out_wide(const std::vector<record> &records) {
  return {{{{{"PORT"},
             {"SUB", true},
             {"CONTROLLER"},
             {"SINCE S", true},
             {"CHANGES", true},
             {"PUBLISHED", true},
             {"RAISED SO OFTEN"},
             {"AGE S", true},
             {"RAISED NOW"}},
            0}},
          records};
}

// A line for the sub-port, one for its counters, and the lists of alarms below them.
table lay_out_narrow(const std::vector<record> &records) {
  table result = {
      {{{{"PORT"}, {"SUB", true}, {"CONTROLLER"}}, 0},
       {{{"SINCE S", true}, {"CHANGES", true}, {"PUBLISHED", true}, {"AGE S", true}}, 4}},
      {}};
  for (const record &whole : records) {
    const row &cells = whole.lines.front().front();
    record folded = {{{{cells[0], cells[1], cells[2]}}, {{cells[3], cells[4], cells[5], cells[7]}}},
                     whole.note};
    folded.texts = {{"raised now: " + cells[8].text, cells[8].paint},
                    {"raised so often: " + cells[6].text}};
    result.records.push_back(folded);
  }
  return result;
}

// Of which sub-ports the alarms are not those of now.
std::string describe_unknown(const json &answer) {
  std::string text;
  if (const auto unknown = answer.at("unknown").get<unsigned>(); unknown > 0) {
    text += fmt::format("The alarms of {} are not known yet.\n",
                        lum_wording::counted(unknown, "sub-port"));
  }
  if (const auto waiting = answer.at("waiting").get<unsigned>(); waiting > 0) {
    text +=
        fmt::format("Those of {} wait for the next poll: what is said of them was known before.\n",
                    lum_wording::counted(waiting, "sub-port"));
  }
  return text;
}

}  // namespace

std::string describe_alarms(const json &answer, const style &output) {
  std::vector<record> records;
  for (const json &interface : answer.at("interfaces")) {
    records.push_back(alarm_record(interface));
  }
  const std::string rest = describe_unknown(answer) + describe_halt(answer.at("halt"));
  if (records.empty()) {
    const auto known = answer.at("known").get<unsigned>();
    return (known == 0 ? ""
                       : fmt::format("no alarm is raised on any of {}\n",
                                     lum_wording::counted(known, "sub-port"))) +
           rest;
  }
  table shown = lay_out_wide(records);
  if (output.columns > 0 && table_width(shown, output) > output.columns) {
    shown = lay_out_narrow(records);
  }
  return render(shown, output) + folded_notes(rest, output);
}

}  // namespace lumctl
