// Reads TOML tables strictly: every key is asked for by name, type and range, and what is missing,
// of another kind or never asked for becomes a problem of its own. Reading goes on after a problem.
#pragma once

#include <toml++/toml.h>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lum_linux/node_description.h"

namespace lum_linux {

class problem_list {
 public:
  explicit problem_list(std::string file) : file_(std::move(file)) {}

  void add(uint32_t line, std::string message) {
    problems_.push_back({file_, line, std::move(message)});
  }
  bool empty() const { return problems_.empty(); }
  // The problems in the order of their lines.
  std::vector<description_problem> take();

 private:
  std::string file_;
  std::vector<description_problem> problems_;
};

// One value with the line it stands in; the line of the table when the value is a default.
template <typename T>
struct located {
  T value{};
  uint32_t line = 0;
};

class toml_table {
 public:
  // `where` names the table in messages, for example "the port".
  toml_table(const toml::table &table, std::string where, problem_list &problems);

  uint32_t line() const { return line_; }
  bool has(std::string_view key) const { return table_.contains(key); }

  // Return nothing after reporting a problem. A key that is not there gives the default, or, when
  // there is none, is reported as missing.
  std::optional<located<int64_t>> integer(std::string_view key, int64_t min, int64_t max,
                                          std::optional<int64_t> fallback = {});
  std::optional<located<bool>> boolean(std::string_view key, bool fallback);
  // A text without control characters, of 1 to `max_bytes` bytes.
  std::optional<located<std::string>> text(std::string_view key, size_t max_bytes,
                                           std::optional<std::string> fallback = {});
  // A value of any kind, for the caller to judge; null when there is none.
  const toml::node *any(std::string_view key) { return find(key); }
  // A sub-table; null when there is none.
  const toml::table *table(std::string_view key);
  // The tables of an array of tables, whose headers read `header`; a missing or empty array is
  // reported when `required`.
  std::vector<const toml::table *> tables(std::string_view key, std::string_view header,
                                          bool required);

  // Reports the keys nobody asked for. Call it last.
  void refuse_unknown_keys();

 private:
  const toml::node *find(std::string_view key);
  void missing(std::string_view key, const std::string &expected);
  void wrong_type(std::string_view key, const toml::node &node, const std::string &expected);

  const toml::table &table_;
  std::string where_;
  problem_list &problems_;
  uint32_t line_;
  std::vector<std::string> known_;
};

}  // namespace lum_linux
