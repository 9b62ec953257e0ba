// Fault scripts as text.
#include "lum_linux/module_faults.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <optional>
#include <vector>

#include "wording/nearest.h"

namespace lum_linux {
namespace {

// One word with a number, where it goes and what it may be.
struct number_word {
  std::string_view name;
  uint32_t fault_script::*field;
  uint32_t min;
  uint32_t max;
};

constexpr uint32_t max_count = 1000000000;
constexpr uint32_t max_delay_ms = 600000;
constexpr uint32_t max_flip_bits = 2048;  // all that one read can hold

constexpr std::array<number_word, 10> number_words = {{
    {"refuse-every", &fault_script::refuse_every, 0, max_count},
    {"refuse-percent", &fault_script::refuse_percent, 0, 100},
    {"code", &fault_script::refuse_code, 1, UINT32_MAX},
    {"flip-every", &fault_script::flip_every, 0, max_count},
    {"flip-percent", &fault_script::flip_percent, 0, 100},
    {"flip-bits", &fault_script::flip_bits, 1, max_flip_bits},
    {"half-every", &fault_script::half_every, 0, max_count},
    {"remove-after", &fault_script::remove_after, 0, max_count},
    {"insert-after", &fault_script::insert_after, 0, max_count},
    {"seed", &fault_script::seed, 0, UINT32_MAX},
}};

constexpr std::string_view all_words =
    "refuse-every, refuse-percent, code, only, delay-ms, hang, flip-every, flip-percent, "
    "flip-bits, half-every, remove-after, insert-after, seed or none";

std::optional<uint32_t> parse_number(std::string_view text, uint32_t min, uint32_t max) {
  uint32_t value = 0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (code != std::errc() || end != text.data() + text.size()) return {};
  if (value < min || value > max) return {};
  return value;
}

std::string wrong_value(std::string_view name, std::string_view value, std::string_view expected) {
  return fmt::format("'{}' is \"{}\", expected {}", name, value, expected);
}

bool parse_count(std::string_view name, std::string_view value, uint32_t min, uint32_t max,
                 uint32_t &into, std::string &error) {
  const auto number = parse_number(value, min, max);
  if (number) {
    into = *number;
  } else {
    error = wrong_value(name, value, fmt::format("an integer from {} to {}", min, max));
  }
  return number.has_value();
}

std::string likely_word(std::string_view name) {
  std::vector<std::string_view> known = {"only", "delay-ms", "hang", "none"};
  for (const number_word &word : number_words) known.push_back(word.name);
  return lum_wording::did_you_mean(name, known);
}

bool parse_word(std::string_view word, fault_script &script, std::string &error) {
  const auto equals = word.find('=');
  const std::string_view name = word.substr(0, equals);
  const bool has_value = equals != std::string_view::npos;
  const std::string_view value = has_value ? word.substr(equals + 1) : std::string_view();
  if (name == "hang") {
    script.hang = true;
    if (has_value) error = wrong_value(name, value, "the word alone");
    return !has_value;
  }
  if (name == "only") {
    script.refuse_reads = value == "reads";
    script.refuse_writes = value == "writes";
    if (script.refuse_reads || script.refuse_writes) return true;
    error = wrong_value(name, value, "reads or writes");
    return false;
  }
  if (name == "delay-ms") {
    uint32_t delay = 0;
    if (!parse_count(name, value, 0, max_delay_ms, delay, error)) return false;
    script.delay = std::chrono::milliseconds(delay);
    return true;
  }
  for (const number_word &known : number_words) {
    if (known.name == name) {
      return parse_count(name, value, known.min, known.max, script.*known.field, error);
    }
  }
  error = fmt::format("unknown word '{}', expected {}{}", name, all_words, likely_word(name));
  return false;
}

}  // namespace

bool parse_fault_script(std::string_view text, fault_script &script, std::string &error) {
  constexpr std::string_view separators = ", \t";
  fault_script parsed;
  std::size_t words = 0;
  bool none = false;
  while (true) {
    const auto start = text.find_first_not_of(separators);
    if (start == std::string_view::npos) break;
    text.remove_prefix(start);
    const std::string_view word = text.substr(0, text.find_first_of(separators));
    text.remove_prefix(word.size());
    ++words;
    if (word == "none") {
      none = true;
    } else if (!parse_word(word, parsed, error)) {
      return false;
    }
  }
  if (words == 0) {
    error = fmt::format("nothing given, expected {}", all_words);
    return false;
  }
  if (none && words > 1) {
    error = "'none' stands beside other words, expected it alone";
    return false;
  }
  script = parsed;
  return true;
}

std::string to_string(const fault_script &script) {
  const fault_script nothing;
  std::string text;
  const auto add = [&text](const std::string &word) {
    if (!text.empty()) text += ',';
    text += word;
  };
  for (const number_word &known : number_words) {
    const uint32_t value = script.*known.field;
    if (value != nothing.*known.field) add(fmt::format("{}={}", known.name, value));
  }
  if (script.refuse_reads != script.refuse_writes) {
    add(script.refuse_reads ? "only=reads" : "only=writes");
  }
  if (script.delay.count() != 0) add(fmt::format("delay-ms={}", script.delay.count()));
  if (script.hang) add("hang");
  return text.empty() ? "none" : text;
}

}  // namespace lum_linux
