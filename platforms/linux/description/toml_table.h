// Reads TOML tables strictly: every key is asked for by name, type and range, and what is missing,
// of another kind or never asked for becomes a problem of its own. Reading goes on after a problem.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
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

// What a key holds, for the caller to judge.
struct toml_any {
  uint32_t line = 0;
  bool is_array = false;
  std::optional<std::string> text;  // when it is one
};

// One table, within the reading of its document.
class toml_table {
 public:
  uint32_t line() const { return line_; }
  bool has(std::string_view key) const;

  // Return nothing after reporting a problem. A key that is not there gives the default, or, when
  // there is none, is reported as missing.
  std::optional<located<int64_t>> integer(std::string_view key, int64_t min, int64_t max,
                                          std::optional<int64_t> fallback = {});
  std::optional<located<bool>> boolean(std::string_view key, bool fallback);
  // A text without control characters, of 1 to `max_bytes` bytes.
  std::optional<located<std::string>> text(std::string_view key, size_t max_bytes,
                                           std::optional<std::string> fallback = {});

  // Return nothing, too, when the key is not there.
  std::optional<located<double>> number(std::string_view key, double min, double max);
  // An array of exactly `count` numbers, or of any number of them from 1 on when `count` is 0.
  // Whole numbers only unless `fractions`.
  std::optional<located<std::vector<double>>> numbers(std::string_view key, size_t count,
                                                      double min, double max, bool fractions);
  // The texts of an array, each as text() wants it; what is none is reported.
  std::vector<std::string> texts(std::string_view key, size_t max_bytes);
  std::optional<toml_any> any(std::string_view key);

  // A sub-table, which `name` names in messages, for example "the port".
  std::optional<toml_table> table(std::string_view key, const std::string &name);
  // The tables of an array of tables, whose headers read `header`; a missing or empty array is
  // reported when `required`.
  std::vector<toml_table> tables(std::string_view key, std::string_view header, bool required,
                                 const std::string &name);

  // Reports the keys nobody asked for. Call it last.
  void refuse_unknown_keys();

 private:
  struct source;  // the parser's own table
  toml_table(std::shared_ptr<const source> from, std::string name, problem_list &problems);
  friend void read_toml(std::string_view text, const std::string &kind, problem_list &problems,
                        const std::function<void(toml_table &)> &read);

  void missing(std::string_view key, const std::string &expected);
  void report(uint32_t line, std::string message);

  std::shared_ptr<const source> source_;
  std::string name_;
  problem_list *problems_;
  uint32_t line_;
  std::vector<std::string> known_;
};

// Lets `read` read the root table of a TOML text, the description of a `kind` ("node") of thing. A
// text that is no TOML becomes a problem, and so does an exception of `read` but std::bad_alloc.
void read_toml(std::string_view text, const std::string &kind, problem_list &problems,
               const std::function<void(toml_table &)> &read);

}  // namespace lum_linux
