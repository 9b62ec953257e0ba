#include "printing/pm_table.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "printing/port_cells.h"

namespace lumctl {
namespace {

std::vector<column> pm_columns() {
  return {{"PORT"},          {"SUB", true},     {"BIN"},       {"START"},
          {"SAMPLES", true}, {"VALUE"},         {"NOW", true}, {"MINIMUM", true},
          {"MAXIMUM", true}, {"AVERAGE", true}, {"UNIT"}};
}

// Powers are kept in tenths of a microwatt.
row value_cells(const json &value, const std::string &name) {
  const bool tenths = value.at("unit") == "0.1 uW";
  const auto number = [&](const char *kind, int digits) {
    const json &kept = value.at(kind);
    if (!kept.is_number()) return cell{"-"};
    return cell{fmt::format("{:.{}f}", kept.get<double>() / (tenths ? 10 : 1), digits)};
  };
  const int digits = tenths ? 1 : 0;
  return {{name},
          number("current", digits),
          number("minimum", digits),
          number("maximum", digits),
          number("average", digits + 1),
          {tenths ? "uW" : text_or_dash(value.at("unit"))}};
}

// Values that the library hands over several times have names such as reading_4_a and reading_4_b.
std::string name_without_letter(const json &value) {
  std::string name = text_or_dash(value.at("name"));
  const bool ends_in_letter = name.size() > 2 && name.at(name.size() - 2) == '_' &&
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
               {text_or_dash(bin.at("length")) + (bin.at("partial").get<bool>() ? " part" : "")},
               {text_or_dash(bin.at("start"))},
               {fmt::format("{}", bin.at("samples").get<std::uint64_t>())}};
  for (const auto &[name, value] : values_of(bin)) {
    row cells = first;
    const row values = value_cells(value, name);
    cells.insert(cells.end(), values.begin(), values.end());
    rows.push_back(cells);
    first = row(first.size());
  }
}

}  // namespace

std::string describe_pm(const json &answer, const style &output) {
  std::vector<record> records;
  for (const json &interface : answer.at("interfaces")) {
    std::vector<row> rows;
    for (const json &bin : interface.at("bins")) {
      if (bin.at("samples") != 0) add_bin(interface, bin, rows);
    }
    if (!rows.empty()) records.push_back({{rows}, {}});
  }
  if (records.empty()) {
    return "nothing is monitored yet\n";
  }
  return render({{pm_columns(), 0}}, records, output);
}

}  // namespace lumctl
