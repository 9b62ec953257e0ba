#include "printing/pm_table.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "printing/polling_text.h"
#include "printing/port_cells.h"

namespace lumctl {
namespace {

std::vector<column> pm_columns() {
  return {{"PORT"},          {"SUB", true},     {"BIN"},           {"START"},
          {"SAMPLES", true}, {"AGE S", true},   {"VALUE"},         {"LAST", true},
          {"MINIMUM", true}, {"MAXIMUM", true}, {"AVERAGE", true}, {"UNIT"}};
}

struct unit {
  const char *member;
  const char *name;
  int digits;
  int average_digits;
};
constexpr unit units[] = {
    {"microwatt", "uW", 1, 2}, {"dbm", "dBm", 1, 1}, {"value", "module's", 1, 2}};

row value_cells(const json &value, const std::string &name, const unit &shown) {
  const json &numbers = value.at(shown.member);
  const bool plausible = !value.contains("plausible") || value.at("plausible").get<bool>();
  const auto number = [&](const char *kind, int digits) {
    return cell{numbers.is_object() ? number_or_dash(numbers.at(kind), digits) : "-"};
  };
  // What is kept as whole numbers has no tenths to show.
  const bool is_whole = value.contains("step") && value.at("step").get<double>() >= 1;
  const int digits = is_whole ? 0 : shown.digits;
  return {{name},
          number("current", digits),
          number("minimum", digits),
          number("maximum", digits),
          number("average", shown.average_digits),
          {std::string(shown.name) + (plausible ? "" : implausible_mark),
           plausible ? colour::none : colour::bad}};
}

// Values that the library hands over several times have names such as reading-4-a and reading-4-b.
std::string name_without_letter(const json &value) {
  std::string name = text_or_dash(value.at("name"));
  const bool ends_in_letter = name.size() > 2 && name.at(name.size() - 2) == '-' &&
                              name.back() >= 'a' && name.back() <= 'z';
  if (ends_in_letter) name.resize(name.size() - 2);
  return name;
}

bool repeats(const json &value, const json &before) {
  json same = value;
  same["name"] = before.at("name");
  return same == before && name_without_letter(value) == name_without_letter(before);
}

// The bin's values with the names to show them by: once unless they differ.
std::vector<std::pair<std::string, json>> values_of(const json &bin) {
  std::vector<std::pair<std::string, json>> values;
  for (const json &value : bin.at("values")) {
    if (!values.empty() && repeats(value, values.back().second)) {
      values.back().first = name_without_letter(value);
    } else {
      values.emplace_back(text_or_dash(value.at("name")), value);
    }
  }
  return values;
}

void add_bin(const json &interface, const json &bin, std::vector<row> &rows) {
  row first = {{text_or_dash(interface.at("port")), colour::strong},
               {fmt::format("{}", interface.at("sub_port").get<unsigned>())},
               {text_or_dash(bin.at("length")) + (bin.at("partial").get<bool>() ? " part" : "") +
                (bin.at("tested").get<bool>() ? " test" : "")},
               {text_or_dash(bin.at("start"))},
               {fmt::format("{}", bin.at("samples").get<std::uint64_t>())},
               {interface.contains("age_s") ? number_or_dash(interface.at("age_s"), 0) : "-"}};
  for (const auto &[name, value] : values_of(bin)) {
    for (const unit &shown : units) {
      if (!value.contains(shown.member)) continue;
      row cells = first;
      const row values = value_cells(value, name, shown);
      cells.insert(cells.end(), values.begin(), values.end());
      rows.push_back(cells);
      first = row(first.size());
    }
  }
}

std::string note_of(const json &interface) {
  return interface.at("polled").get<bool>() ? ""
                                            : "there is no reading now; these were polled before";
}

bool has_mark(const json &answer) {
  for (const json &interface : answer.at("interfaces")) {
    for (const json &bin : interface.at("bins")) {
      for (const json &value : bin.at("values")) {
        if (value.contains("plausible") && !value.at("plausible").get<bool>()) return true;
      }
    }
  }
  return false;
}

}  // namespace

std::string describe_pm(const json &answer, const style &output) {
  std::vector<record> records;
  for (const json &interface : answer.at("interfaces")) {
    std::vector<row> rows;
    for (const json &bin : interface.at("bins")) {
      if (bin.at("samples") != 0) add_bin(interface, bin, rows);
    }
    if (!rows.empty()) records.push_back({{rows}, note_of(interface)});
  }
  const std::string halt = describe_halt(answer.at("halt"));
  if (records.empty()) return "nothing is monitored yet\n" + halt;
  return render({{pm_columns(), 0}}, records, output) + (has_mark(answer) ? describe_mark() : "") +
         halt;
}

}  // namespace lumctl
