#include "api/client.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "api/no_driver.h"
#include "api/transport.h"
#include "json/read.h"

namespace lumctl {
namespace {

api_result call(const destination &driver, const question &asked,
                std::chrono::milliseconds patience) {
  const raw_answer answer = exchange(driver, asked, patience);
  if (answer.what != outcome::done) return {answer.what, nullptr, answer.error};
  std::string why;
  const auto shown = std::make_shared<const json>(lum_json::read(answer.body, why));
  if (!why.empty()) return {outcome::unreachable, nullptr, why_no_answer(driver, why)};
  if (answer.status / 100 != 2) {
    return {outcome::refused, nullptr,
            reason_in(*shown).value_or(fmt::format("the driver refused ({})", answer.status))};
  }
  return {outcome::done, shown, {}};
}

}  // namespace

api_result get(const destination &driver, const std::string &target,
               std::chrono::milliseconds patience) {
  return call(driver, {false, target}, patience);
}

raw_answer get_as_it_is(const destination &driver, const std::string &target,
                        std::chrono::milliseconds patience) {
  return exchange(driver, {false, target}, patience);
}

api_result post(const destination &driver, const std::string &target, const json &body,
                std::chrono::milliseconds patience) {
  if (!driver.url.empty()) {
    return {outcome::refused, nullptr,
            fmt::format("{} is there to look at: changes are made on the node itself, through its "
                        "driver's socket",
                        driver.url)};
  }
  return call(driver, {true, target, body.dump(-1, ' ', false, json::error_handler_t::replace)},
              patience);
}

std::optional<std::string> reason_in(const json &problem) {
  if (!problem.is_object()) return std::nullopt;
  const auto found = problem.find("detail");
  if (found == problem.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

std::string encoded(const std::string &text) {
  std::string result;
  for (const char c : text) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '-' || c == '_' || c == '.' || c == '~';
    result += plain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return result;
}

}  // namespace lumctl
