#include "metrics/metrics_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "base/printable.h"
#include "json/document.h"
#include "views/json.h"

namespace lumd {
namespace {

// The page is UTF-8, what a module says about itself may be anything.
std::string as_utf8(std::string_view text) {
  return json::parse(lum_client::dumped(text)).get<std::string>();
}

bool is_plain(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

// Quotes and backslashes are escaped; printable() has replaced what would end a line.
void append_escaped(std::string_view value, std::string &text) {
  for (std::size_t special = value.find_first_of("\"\\"); special != std::string_view::npos;
       special = value.find_first_of("\"\\")) {
    text.append(value.substr(0, special));
    text += '\\';
    text += value[special];
    value.remove_prefix(special + 1);
  }
  text.append(value);
}

// Pages are looked at in terminals too.
void append_label(const metric_label &label, std::string &text) {
  text.append(label.name);
  text += "=\"";
  if (is_plain(label.value)) {
    append_escaped(label.value, text);
  } else {
    append_escaped(lum_client::printable(as_utf8(label.value)), text);
  }
  text += '"';
}

// Whole numbers, which most are, without the search for the shortest text that says the same.
void append_value(double value, std::string &text) {
  constexpr double largest_exact = 1LL << 53;
  if (std::abs(value) <= largest_exact && value == std::trunc(value)) {
    const fmt::format_int whole(static_cast<long long>(value));
    text.append(whole.data(), whole.size());
  } else if (std::isfinite(value)) {
    fmt::format_to(std::back_inserter(text), "{}", value);
  } else {
    text += std::isnan(value) ? "NaN" : value > 0 ? "+Inf" : "-Inf";
  }
  text += '\n';
}

}  // namespace

void metric_labels::add(const metric_label &label) {
  const auto [before, behind] = around(label.name);
  std::string all(before);
  if (!before.empty()) all += ',';
  const std::size_t at = all.size();
  append_label(label, all);
  if (!behind.empty()) all += ',';
  const std::size_t grown = all.size() + behind.size() - text_.size();
  all += behind;
  text_ = std::move(all);
  const auto place = std::ranges::upper_bound(places_, label.name, {}, &place_of_name::first);
  for (auto later = place; later != places_.end(); ++later) later->second += grown;
  places_.insert(place, {label.name, at});
}

std::pair<std::string_view, std::string_view> metric_labels::around(std::string_view name) const {
  const std::string_view all = text_;
  const auto later = std::ranges::upper_bound(places_, name, {}, &place_of_name::first);
  if (later == places_.end()) return {all, {}};
  const std::size_t at = later->second;
  return {all.substr(0, at == 0 ? 0 : at - 1), all.substr(at)};
}

void metrics_page::gauge(std::string_view name, std::string_view help, const metric_labels &labels,
                         const metric_label &last, double value) {
  std::string &text = begin(name, help, "gauge");
  const auto [before, behind] = labels.around(last.name);
  text += '{';
  text += before;
  if (!before.empty()) text += ',';
  append_label(last, text);
  if (!behind.empty()) text += ',';
  text += behind;
  text += "} ";
  append_value(value, text);
}

void metrics_page::add(std::string_view name, std::string_view help, std::string_view type,
                       const metric_labels &labels, double value) {
  std::string &text = begin(name, help, type);
  if (!labels.text().empty()) {
    text += '{';
    text += labels.text();
    text += '}';
  }
  text += ' ';
  append_value(value, text);
}

std::string &metrics_page::begin(std::string_view name, std::string_view help,
                                 std::string_view type) {
  const auto [place, is_new] = places_.emplace(name, families_.size());
  if (is_new) {
    families_.push_back(fmt::format("# HELP {0} {1}\n# TYPE {0} {2}\n", name, help, type));
  }
  std::string &text = families_[place->second];
  text += name;
  return text;
}

std::string metrics_page::text() const {
  std::size_t size = 0;
  for (const std::string &family : families_) size += family.size();
  std::string page;
  page.reserve(size);
  for (const std::string &family : families_) page += family;
  return page;
}

}  // namespace lumd
