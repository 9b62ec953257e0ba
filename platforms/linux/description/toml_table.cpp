#include "description/toml_table.h"

#include <fmt/format.h>

#include <algorithm>

namespace lum_linux {
namespace {

std::string kind_of(const toml::node &node) {
  switch (node.type()) {
    case toml::node_type::table:
      return "a table";
    case toml::node_type::array:
      return "an array";
    case toml::node_type::string:
      return "a text";
    case toml::node_type::integer:
      return "an integer";
    case toml::node_type::floating_point:
      return "a floating-point number";
    case toml::node_type::boolean:
      return "a boolean";
    default:
      return "a date or time";
  }
}

uint32_t line_of(const toml::node &node) { return node.source().begin.line; }

bool has_control_character(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
}

}  // namespace

std::vector<description_problem> problem_list::take() {
  std::stable_sort(problems_.begin(), problems_.end(),
                   [](const auto &a, const auto &b) { return a.line < b.line; });
  return std::move(problems_);
}

toml_table::toml_table(const toml::table &table, std::string where, problem_list &problems)
    : table_(table), where_(std::move(where)), problems_(problems), line_(line_of(table)) {}

std::optional<located<int64_t>> toml_table::integer(std::string_view key, int64_t min, int64_t max,
                                                    std::optional<int64_t> fallback) {
  const std::string expected = fmt::format("an integer from {} to {}", min, max);
  const toml::node *node = find(key);
  if (!node) {
    if (fallback) return located<int64_t>{*fallback, line_};
    missing(key, expected);
    return {};
  }
  const auto *value = node->as_integer();
  if (!value) {
    wrong_type(key, *node, expected);
    return {};
  }
  if (value->get() < min || value->get() > max) {
    problems_.add(line_of(*node),
                  fmt::format("'{}' is {}, expected {}", key, value->get(), expected));
    return {};
  }
  return located<int64_t>{value->get(), line_of(*node)};
}

std::optional<located<bool>> toml_table::boolean(std::string_view key, bool fallback) {
  const toml::node *node = find(key);
  if (!node) return located<bool>{fallback, line_};
  const auto *value = node->as_boolean();
  if (!value) {
    wrong_type(key, *node, "true or false");
    return {};
  }
  return located<bool>{value->get(), line_of(*node)};
}

std::optional<located<std::string>> toml_table::text(std::string_view key, size_t max_bytes,
                                                     std::optional<std::string> fallback) {
  const std::string expected = fmt::format("a text of 1 to {} bytes", max_bytes);
  const toml::node *node = find(key);
  if (!node) {
    if (fallback) return located<std::string>{std::move(*fallback), line_};
    missing(key, expected);
    return {};
  }
  const auto *value = node->as_string();
  if (!value) {
    wrong_type(key, *node, expected);
    return {};
  }
  const std::string &text = value->get();
  if (text.empty() || text.size() > max_bytes) {
    problems_.add(line_of(*node),
                  fmt::format("'{}' is {} bytes long, expected {}", key, text.size(), expected));
    return {};
  }
  if (has_control_character(text)) {
    problems_.add(line_of(*node), fmt::format("'{}' holds a control character, expected {} of "
                                              "printable characters",
                                              key, expected));
    return {};
  }
  return located<std::string>{text, line_of(*node)};
}

const toml::table *toml_table::table(std::string_view key) {
  const toml::node *node = find(key);
  if (node && !node->is_table()) wrong_type(key, *node, fmt::format("a [{}] table", key));
  return node ? node->as_table() : nullptr;
}

std::vector<const toml::table *> toml_table::tables(std::string_view key, std::string_view header,
                                                    bool required) {
  const std::string expected = fmt::format("one or more {} tables", header);
  std::vector<const toml::table *> result;
  const toml::node *node = find(key);
  if (!node) {
    if (required) missing(key, expected);
    return result;
  }
  const toml::array *array = node->as_array();
  if (!array) {
    wrong_type(key, *node, expected);
    return result;
  }
  if (array->empty() && required) {
    problems_.add(line_of(*node), fmt::format("'{}' is empty, expected {}", key, expected));
  }
  for (const toml::node &element : *array) {
    if (const toml::table *found = element.as_table()) {
      result.push_back(found);
    } else {
      problems_.add(line_of(element),
                    fmt::format("'{}' holds {}, expected {}", key, kind_of(element), expected));
    }
  }
  return result;
}

void toml_table::refuse_unknown_keys() {
  for (const auto &[key, node] : table_) {
    if (std::find(known_.begin(), known_.end(), key.str()) != known_.end()) continue;
    problems_.add(key.source().begin.line, fmt::format("unknown key '{}' in {}, expected one of {}",
                                                       key.str(), where_, fmt::join(known_, ", ")));
  }
}

const toml::node *toml_table::find(std::string_view key) {
  known_.emplace_back(key);
  return table_.get(key);
}

void toml_table::missing(std::string_view key, const std::string &expected) {
  problems_.add(line_, fmt::format("missing key '{}' in {}, expected {}", key, where_, expected));
}

void toml_table::wrong_type(std::string_view key, const toml::node &node,
                            const std::string &expected) {
  problems_.add(line_of(node),
                fmt::format("'{}' is {}, expected {}", key, kind_of(node), expected));
}

}  // namespace lum_linux
