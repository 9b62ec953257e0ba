#include "printing/settings_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "api/client.h"
#include "printing/line.h"
#include "printing/port_cells.h"
#include "printing/table.h"
#include "words/settings.h"

namespace lumctl {
namespace {

constexpr const char *never_set = "never set";

std::string whole_or_dash(const json &value) {
  return value.is_number() ? fmt::format("{}", value.get<std::int64_t>()) : "-";
}

cell place_cell(const json &setting, const char *place, bool differs) {
  return {whole_or_dash(setting.at(place).at("value")), differs ? colour::bad : colour::none};
}

// What the module holds, as it would be set; its register where no value says it.
std::string held_text(const json &held) {
  if (held.at("register").is_null()) return "-";
  return held.at("value").is_null()
             ? fmt::format("register {}", held.at("register").get<unsigned>())
             : fmt::format("{:g}", held.at("value").get<double>());
}

bool has(const json &list, const char *word) {
  return std::find(list.begin(), list.end(), word) != list.end();
}

std::string remark_on(const json &setting) {
  std::string text;
  const auto add = [&text](const std::string &more) { text += (text.empty() ? "" : ", ") + more; };
  const json &differs = setting.at("differs");
  if (has(differs, "saved")) add("saved differs");
  if (has(differs, "module")) add("module differs");
  if (setting.at("never_set") == true) add(never_set);
  const json &module = setting.at("module");
  if (module.contains("exists")) add(text_or_dash(module.at("reason")));
  if (has(differs, "module") && module.contains("upper_register")) {
    add(fmt::format("its registers {} and {}", module.at("upper_register").get<unsigned>(),
                    module.at("register").get<unsigned>()));
  }
  return text;
}

row setting_row(const json &setting) {
  const json &differs = setting.at("differs");
  const bool module_differs = has(differs, "module");
  const json &unit = setting.at("unit");
  return {{text_or_dash(setting.at("name"))},
          place_cell(setting, "saved", has(differs, "saved")),
          place_cell(setting, "in_force", false),
          {held_text(setting.at("module")), module_differs ? colour::bad : colour::none},
          {unit.is_null() ? "" : text_or_dash(unit)},
          {remark_on(setting), differs.empty() ? colour::faint : colour::bad}};
}

// Why values of one place are not known, each reason once. What was never set, or is nowhere in the
// module, is known.
std::string reasons_for(const json &settings, const char *place, const char *title,
                        const std::string &asked_at) {
  std::string text;
  std::vector<std::string> told;
  for (const json &setting : settings) {
    const json &value = setting.at(place);
    if (!value.contains("reason") || value.contains("exists")) continue;
    const std::string reason = text_or_dash(value.at("reason"));
    if (reason == never_set || reason == "nothing is saved" || has(json(told), reason.c_str())) {
      continue;
    }
    told.push_back(reason);
    text += fmt::format("  {}: not known, asked at {}: {}\n", title, asked_at, reason);
  }
  return text;
}

std::string describe_sub_port(const json &port, const json &sub_port, const std::string &asked_at,
                              const style &where) {
  const json &settings = sub_port.at("settings");
  table shown;
  shown.formats = {{{{"SETTING"},
                     {"SAVED", true},
                     {"IN FORCE", true},
                     {"IN MODULE", true},
                     {"UNIT"},
                     {"REMARK"}},
                    2}};
  shown.records.resize(1);
  shown.records[0].lines.resize(1);
  for (const json &setting : settings) shown.records[0].lines[0].push_back(setting_row(setting));
  return fmt::format("{}:{}\n", text_or_dash(port.at("name")),
                     sub_port.at("sub_port").get<unsigned>()) +
         render(shown, where) +
         folded_notes(reasons_for(settings, "saved", "Saved", asked_at) +
                          reasons_for(settings, "in_force", "In force", asked_at) +
                          reasons_for(settings, "module", "In module", asked_at),
                      where);
}

// "threshold 20 -> 30"
std::string describe_one(const json &one) {
  const json &old = one.at("old");
  return fmt::format("{} {} -> {}{}", text_or_dash(one.at("name")),
                     old.is_null() ? never_set : whole_or_dash(old), whole_or_dash(one.at("new")),
                     one.at("asked").get<bool>() ? "" : " (comes along)");
}

}  // namespace

std::string settings_path(const std::string &port) {
  return "/v1/ports/" + encoded(port) + "/settings";
}

std::string describe_settings(const json &answer, const style &where) {
  const std::string asked_at = text_or_dash(answer.at("asked_at"));
  std::string text;
  for (const json &port : answer.at("ports")) {
    for (const json &sub_port : port.at("sub_ports")) {
      text += describe_sub_port(port, sub_port, asked_at, where);
    }
  }
  return text +
         folded_notes(fmt::format("asked at {}; values are as \"lumctl set\" takes them, without a "
                                  "unit in tens of the module's own\n",
                                  asked_at),
                      where);
}

std::string describe_change(const json &reply) {
  std::string changes;
  for (const json &one : reply.at("changes")) {
    changes += (changes.empty() ? "" : ", ") + describe_one(one);
  }
  return fmt::format("{}:{} {}{}\n", text_or_dash(reply.at("name")),
                     reply.at("sub_port").get<unsigned>(), changes,
                     reply.contains("dry_run") ? "; nothing has been written" : "");
}

std::vector<std::string> describe_dropped(const json &plan) {
  std::vector<std::string> lines;
  for (const json &one : plan.at("drops")) {
    std::string settings;
    for (const lum_words::setting &known : lum_words::settings) {
      const std::string member = lum_words::member_of(known.name);
      if (!one.at("settings").contains(member)) continue;
      settings += fmt::format("{}{} {}", settings.empty() ? "" : ", ", known.name,
                              whole_or_dash(one.at("settings").at(member)));
    }
    lines.push_back(fmt::format("the settings of {}:{}: {}", text_or_dash(one.at("port")),
                                one.at("sub_port").get<unsigned>(), settings));
  }
  for (const json &one : plan.at("not_known")) {
    lines.push_back(fmt::format("whatever is saved of {}, which is not known: {}",
                                text_or_dash(one.at("port")), text_or_dash(one.at("reason"))));
  }
  return lines;
}

}  // namespace lumctl
