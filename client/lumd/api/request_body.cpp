#include "api/request_body.h"

#include <fmt/format.h>

#include <cmath>

#include "wording/nearest.h"

namespace lumd {
namespace {

constexpr uint32_t usual_wait_ms = 5'000;
constexpr uint32_t longest_wait_ms = 20'000;

// A value as it came, cut to a line's length.
std::string shown(const json &value) {
  constexpr std::size_t longest = 60;
  std::string text = value.dump(-1, ' ', true, json::error_handler_t::replace);
  if (text.size() <= longest) return text;
  text.resize(longest);
  return text += "...";
}

}  // namespace

request_body::request_body(const json &body) : body_(body.is_null() ? json::object() : body) {
  if (!body_.is_object()) {
    complain("the body is not an object");
    body_ = json::object();
  }
}

uint32_t request_body::number(std::string_view name, uint32_t least, uint32_t most) {
  const json *value = required(name, fmt::format("a whole number from {} to {}", least, most));
  return value == nullptr ? 0 : checked_number(*value, name, least, most);
}

std::optional<uint32_t> request_body::optional_number(std::string_view name, uint32_t least,
                                                      uint32_t most) {
  const json *value = member(name);
  if (value == nullptr) return std::nullopt;
  return checked_number(*value, name, least, most);
}

bool request_body::boolean(std::string_view name) {
  required(name, "true or false");
  return optional_boolean(name, false);
}

bool request_body::optional_boolean(std::string_view name, bool otherwise) {
  const json *value = member(name);
  if (value == nullptr) return otherwise;
  if (value->is_boolean()) return value->get<bool>();
  complain(fmt::format("\"{}\" is {}, expected true or false", name, shown(*value)));
  return otherwise;
}

std::string request_body::text(std::string_view name) {
  required(name, "a text");
  return optional_text(name).value_or("");
}

std::optional<std::string> request_body::optional_text(std::string_view name) {
  const json *value = member(name);
  if (value == nullptr) return std::nullopt;
  if (value->is_string() && !value->get_ref<const std::string &>().empty()) {
    return value->get<std::string>();
  }
  complain(fmt::format("\"{}\" is {}, expected a text", name, shown(*value)));
  return std::nullopt;
}

std::chrono::milliseconds request_body::wait() {
  return std::chrono::milliseconds(
      optional_number("wait_ms", 0, longest_wait_ms).value_or(usual_wait_ms));
}

const json *request_body::member(std::string_view name) {
  known_.emplace(name);
  const auto found = body_.find(std::string(name));
  return found == body_.end() || found->is_null() ? nullptr : &*found;
}

void request_body::complain(std::string what) {
  if (wrong_.empty()) wrong_ = std::move(what);
}

std::string request_body::wrong() const {
  if (!wrong_.empty()) return wrong_;
  for (const auto &[name, value] : body_.items()) {
    if (known_.contains(name)) continue;
    if (known_.empty()) return fmt::format("there is no \"{}\" here, expected no member", name);
    return fmt::format("there is no \"{}\" here, expected one of {}{}", name,
                       fmt::join(known_, ", "), lum_wording::did_you_mean(name, known_));
  }
  return {};
}

std::string request_body::unknown_word(std::string_view name, std::string_view given,
                                       const std::vector<std::string_view> &known) {
  return fmt::format("\"{}\" is \"{}\", expected one of {}{}", name, given, fmt::join(known, ", "),
                     lum_wording::did_you_mean(given, known));
}

const json *request_body::required(std::string_view name, std::string_view expected) {
  const json *value = member(name);
  if (value == nullptr) complain(fmt::format("\"{}\" is missing, expected {}", name, expected));
  return value;
}

// 10, 10.0 and 1e1 are one number in JSON.
uint32_t request_body::checked_number(const json &value, std::string_view name, uint32_t least,
                                      uint32_t most) {
  if (value.is_number()) {
    const auto number = value.get<double>();  // exact for every uint32_t
    if (number >= least && number <= most && number == std::floor(number)) {
      return static_cast<uint32_t>(number);
    }
  }
  complain(fmt::format("\"{}\" is {}, expected a whole number from {} to {}", name, shown(value),
                       least, most));
  return least;
}

}  // namespace lumd
