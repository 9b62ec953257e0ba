#include "printing/pm_table.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/polling_text.h"
#include "printing/port_cells.h"

namespace lumctl {
namespace {

std::vector<column> bin_columns() {
  return {{"PORT"}, {"SUB", true}, {"BIN"}, {"START"}, {"SAMPLES", true}, {"AGE S", true}};
}
std::vector<column> value_columns() {
  return {{"VALUE"},         {"LAST", true},    {"MINIMUM", true},
          {"MAXIMUM", true}, {"AVERAGE", true}, {"UNIT"}};
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

row bin_cells(const json &interface, const json &bin) {
  return {{text_or_dash(interface.at("port")), colour::strong},
          {fmt::format("{}", interface.at("sub_port").get<unsigned>())},
          {text_or_dash(bin.at("length")) + (bin.at("partial").get<bool>() ? " part" : "") +
           (bin.at("tested").get<bool>() ? " test" : "")},
          {text_or_dash(bin.at("start"))},
          {fmt::format("{}", bin.at("samples").get<std::uint64_t>())},
          {interface.contains("age_s") ? number_or_dash(interface.at("age_s"), 0) : "-"}};
}

std::vector<row> value_rows(const json &bin) {
  std::vector<row> rows;
  for (const auto &[name, value] : values_of(bin)) {
    for (const unit &shown : units) {
      if (value.contains(shown.member)) rows.push_back(value_cells(value, name, shown));
    }
  }
  return rows;
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

std::vector<json> sampled_bins(const json &interface) {
  std::vector<json> bins;
  for (const json &bin : interface.at("bins")) {
    if (bin.at("samples") != 0) bins.push_back(bin);
  }
  return bins;
}

// The values beside their bin, one below the other.
table lay_out_wide(const json &answer) {
  table result;
  std::vector<column> columns = bin_columns();
  const std::size_t own = columns.size();
  for (const column &one : value_columns()) columns.push_back(one);
  result.formats = {{columns, 0}};
  for (const json &interface : answer.at("interfaces")) {
    std::vector<row> rows;
    for (const json &bin : sampled_bins(interface)) {
      row first = bin_cells(interface, bin);
      for (const row &values : value_rows(bin)) {
        rows.push_back(first);
        rows.back().insert(rows.back().end(), values.begin(), values.end());
        first = row(own);
      }
    }
    if (!rows.empty()) result.records.push_back({{rows}, note_of(interface)});
  }
  return result;
}

// The values below their bin.
table lay_out_narrow(const json &answer) {
  table result;
  result.formats = {{bin_columns(), 0}, {value_columns(), 2}};
  for (const json &interface : answer.at("interfaces")) {
    const auto bins = sampled_bins(interface);
    for (const json &bin : bins) {
      result.records.push_back({{{bin_cells(interface, bin)}, value_rows(bin)}});
    }
    if (!bins.empty()) result.records.back().note = note_of(interface);
  }
  return result;
}

}  // namespace

std::string describe_pm(const json &answer, const style &output) {
  const std::string halt = describe_halt(answer.at("halt"));
  table shown = lay_out_wide(answer);
  if (shown.records.empty()) return "nothing is monitored yet\n" + halt;
  if (output.columns > 0 && table_width(shown, output) > output.columns) {
    shown = lay_out_narrow(answer);
  }
  const std::string notes = (has_mark(answer) ? describe_mark() : "") + halt;
  return render(shown, output) + folded_notes(notes, output);
}

}  // namespace lumctl
