#include "description/toml_table.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <new>

#include "description/control_characters.h"
#include "description/toml_depth.h"
#include "wording/nearest.h"
#include "wording/numbers.h"

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

std::optional<double> number_of(const toml::node &node) {
  if (const auto *integer = node.as_integer()) return static_cast<double>(integer->get());
  if (const auto *real = node.as_floating_point()) return real->get();
  return {};
}

std::string wrong_kind(std::string_view key, const toml::node &node, std::string_view expected) {
  return fmt::format("'{}' is {}, expected {}", key, kind_of(node), expected);
}

}  // namespace

std::vector<description_problem> problem_list::take() {
  std::stable_sort(problems_.begin(), problems_.end(),
                   [](const auto &a, const auto &b) { return a.line < b.line; });
  return std::move(problems_);
}

struct toml_table::source {
  const toml::table &table;

  // The value of a key, null when there is none.
  const toml::node *find(std::string_view key, std::vector<std::string> &known) const {
    known.emplace_back(key);
    return table.get(key);
  }
};

toml_table::toml_table(std::shared_ptr<const source> from, std::string name, problem_list &problems)
    : source_(std::move(from)),
      name_(std::move(name)),
      problems_(&problems),
      line_(line_of(source_->table)) {}

bool toml_table::has(std::string_view key) const { return source_->table.contains(key); }

std::optional<located<int64_t>> toml_table::integer(std::string_view key, int64_t min, int64_t max,
                                                    std::optional<int64_t> fallback) {
  const std::string expected = fmt::format("an integer from {} to {}", min, max);
  const toml::node *node = source_->find(key, known_);
  if (!node) {
    if (fallback) return located<int64_t>{*fallback, line_};
    missing(key, expected);
    return {};
  }
  const auto *value = node->as_integer();
  if (!value) {
    report(line_of(*node), wrong_kind(key, *node, expected));
    return {};
  }
  if (value->get() < min || value->get() > max) {
    report(line_of(*node), fmt::format("'{}' is {}, expected {}", key, value->get(), expected));
    return {};
  }
  return located<int64_t>{value->get(), line_of(*node)};
}

std::optional<located<bool>> toml_table::boolean(std::string_view key, bool fallback) {
  const toml::node *node = source_->find(key, known_);
  if (!node) return located<bool>{fallback, line_};
  const auto *value = node->as_boolean();
  if (!value) {
    report(line_of(*node), wrong_kind(key, *node, "true or false"));
    return {};
  }
  return located<bool>{value->get(), line_of(*node)};
}

std::optional<located<std::string>> toml_table::text(std::string_view key, size_t max_bytes,
                                                     std::optional<std::string> fallback) {
  const std::string expected = fmt::format("a text of 1 to {} bytes", max_bytes);
  const toml::node *node = source_->find(key, known_);
  if (!node) {
    if (fallback) return located<std::string>{std::move(*fallback), line_};
    missing(key, expected);
    return {};
  }
  const auto *value = node->as_string();
  if (!value) {
    report(line_of(*node), wrong_kind(key, *node, expected));
    return {};
  }
  const std::string &text = value->get();
  if (text.empty() || text.size() > max_bytes) {
    report(line_of(*node),
           fmt::format("'{}' is {} bytes long, expected {}", key, text.size(), expected));
    return {};
  }
  if (has_control_character(text)) {
    report(line_of(*node), fmt::format("'{}' holds a control character, expected {} of "
                                       "printable characters",
                                       key, expected));
    return {};
  }
  return located<std::string>{text, line_of(*node)};
}

std::optional<located<double>> toml_table::number(std::string_view key, double min, double max) {
  const toml::node *node = source_->find(key, known_);
  if (!node) return {};
  const auto value = number_of(*node);
  if (value && *value >= min && *value <= max) return located<double>{*value, line_of(*node)};
  report(line_of(*node),
         value ? fmt::format("'{}' is {}, expected a number from {} to {}", key, *value, min, max)
               : fmt::format("'{}' is no number, expected one from {} to {}", key, min, max));
  return {};
}

std::optional<located<std::vector<double>>> toml_table::numbers(std::string_view key, size_t count,
                                                                double min, double max,
                                                                bool fractions) {
  const toml::node *node = source_->find(key, known_);
  if (!node) return {};
  const std::string expected =
      fmt::format("an array of {}{}numbers from {} to {}",
                  count > 0 ? fmt::format("{} ", count) : "", fractions ? "" : "whole ", min, max);
  const toml::array *array = node->as_array();
  if (!array || array->empty() || (count > 0 && array->size() != count)) {
    report(line_of(*node),
           array ? fmt::format("'{}' has {}, expected {}", key,
                               lum_wording::counted(array->size(), "element"), expected)
                 : fmt::format("'{}' is no array, expected {}", key, expected));
    return {};
  }
  located<std::vector<double>> result{{}, line_of(*node)};
  for (const toml::node &element : *array) {
    const auto value = number_of(element);
    if (!value || !(*value >= min && *value <= max) || (!fractions && !element.is_integer())) {
      report(
          line_of(element),
          fmt::format("'{}' holds {}, expected {}", key,
                      value ? fmt::format("{}", *value) : std::string("something else"), expected));
      return {};
    }
    result.value.push_back(*value);
  }
  return result;
}

std::vector<std::string> toml_table::texts(std::string_view key, size_t max_bytes) {
  std::vector<std::string> result;
  const toml::node *node = source_->find(key, known_);
  if (!node) return result;
  const std::string expected = fmt::format("an array of texts of 1 to {} bytes", max_bytes);
  const auto *array = node->as_array();
  if (!array) {
    report(line_of(*node), wrong_kind(key, *node, expected));
    return result;
  }
  for (const toml::node &element : *array) {
    const auto *text = element.as_string();
    if (text && !text->get().empty() && text->get().size() <= max_bytes &&
        !has_control_character(text->get())) {
      result.push_back(text->get());
    } else {
      report(line_of(element), fmt::format("'{}' holds {}, expected {}", key,
                                           text ? "another text" : kind_of(element), expected));
    }
  }
  return result;
}

std::optional<toml_any> toml_table::any(std::string_view key) {
  const toml::node *node = source_->find(key, known_);
  if (!node) return {};
  toml_any found{line_of(*node), node->is_array(), {}};
  if (const auto *text = node->as_string()) found.text = text->get();
  return found;
}

std::optional<toml_table> toml_table::table(std::string_view key, const std::string &name) {
  const toml::node *node = source_->find(key, known_);
  if (!node) return {};
  if (const toml::table *found = node->as_table()) {
    return toml_table(std::make_shared<source>(source{*found}), name, *problems_);
  }
  report(line_of(*node), wrong_kind(key, *node, fmt::format("a [{}] table", key)));
  return {};
}

std::vector<toml_table> toml_table::tables(std::string_view key, std::string_view header,
                                           bool required, const std::string &name) {
  const std::string expected = fmt::format("one or more {} tables", header);
  std::vector<toml_table> result;
  const toml::node *node = source_->find(key, known_);
  if (!node) {
    if (required) missing(key, expected);
    return result;
  }
  const toml::array *array = node->as_array();
  if (!array) {
    report(line_of(*node), wrong_kind(key, *node, expected));
    return result;
  }
  if (array->empty() && required) {
    report(line_of(*node), fmt::format("'{}' is empty, expected {}", key, expected));
  }
  for (const toml::node &element : *array) {
    if (const toml::table *found = element.as_table()) {
      result.push_back(toml_table(std::make_shared<source>(source{*found}), name, *problems_));
    } else {
      report(line_of(element),
             fmt::format("'{}' holds {}, expected {}", key, kind_of(element), expected));
    }
  }
  return result;
}

void toml_table::refuse_unknown_keys() {
  for (const auto &[key, node] : source_->table) {
    if (std::find(known_.begin(), known_.end(), key.str()) != known_.end()) continue;
    report(key.source().begin.line,
           fmt::format("unknown key '{}' in {}, expected one of {}{}", key.str(), name_,
                       fmt::join(known_, ", "), lum_wording::did_you_mean(key.str(), known_)));
  }
}

void toml_table::missing(std::string_view key, const std::string &expected) {
  report(line_, fmt::format("missing key '{}' in {}, expected {}", key, name_, expected));
}

void toml_table::report(uint32_t line, std::string message) {
  problems_->add(line, std::move(message));
}

// The parser is not told the file: to keep its name it needs memory where it may not throw.
void read_toml(std::string_view text, const std::string &kind, problem_list &problems,
               const std::function<void(toml_table &)> &read) {
  if (const auto line = find_deep_toml_key(text)) {
    problems.add(*line, fmt::format("a key with more than {} parts; expected a {} description",
                                    deepest_toml_key, kind));
    return;
  }
  try {
    const toml::table document = toml::parse(text);
    toml_table root(std::make_shared<toml_table::source>(toml_table::source{document}),
                    "the " + kind, problems);
    read(root);
  } catch (const toml::parse_error &error) {
    problems.add(error.source().begin.line,
                 fmt::format("{}; expected a {} description in TOML", error.description(), kind));
  } catch (const std::bad_alloc &) {
    throw;  // says nothing of the text
  } catch (const std::exception &error) {
    problems.add(0, fmt::format("cannot be read: {}", error.what()));
  }
}

}  // namespace lum_linux
