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

// The library hands reading 4 over three times; it is shown once unless they differ.
bool is_reading_4(const json &value) {
  return value.at("name").get<std::string>().starts_with("reading_4");
}

bool repeats(const json &value, const json &before) {
  json same = value;
  same["name"] = before.at("name");
  return same == before && is_reading_4(value);
}

// The bin's values with the names to show them by.
std::vector<std::pair<std::string, json>> values_of(const json &bin) {
  std::vector<std::pair<std::string, json>> values;
  for (const json &value : bin.at("values")) {
    if (!values.empty() && repeats(value, values.back().second)) {
      values.back().first = "reading_4";
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
