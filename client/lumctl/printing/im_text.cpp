#include "printing/im_text.h"

#include <fmt/format.h>

#include <cstdint>
#include <nlohmann/json.hpp>

#include "printing/port_cells.h"
#include "wording/numbers.h"

namespace lumctl {
namespace {

std::uint64_t number(const json &object, const char *name) {
  return object.at(name).get<std::uint64_t>();
}

std::string code_text(const json &object) {
  const std::uint64_t code = number(object, "code");
  return code > 0xFFFF ? fmt::format("0x{:08x}", code) : fmt::format("{}", code);
}

// A fault of the next batches; empty when there is none.
std::string describe_batches(const json &fault, const char *what) {
  if (number(fault, "batches") == 0) return {};
  std::string how;
  if (fault.contains("code")) how = fmt::format(" with code {}", code_text(fault));
  if (fault.contains("kind")) how = fmt::format(", {}", text_or_dash(fault.at("kind")));
  return fmt::format("  {} the next {}{}\n", what, number(fault, "batches"), how);
}

std::string describe_elements(const json &behaviour) {
  std::string text;
  for (const json &name : behaviour.at("fail_names")) {
    text += fmt::format("  elements of {} fail with code {}\n", text_or_dash(name.at("name")),
                        code_text(name));
  }
  const json &every = behaviour.at("fail_every");
  if (number(every, "nth") != 0) {
    text += fmt::format("  every {} element fails with code {}\n",
                        lum_wording::ordinal(number(every, "nth")), code_text(every));
  }
  return text;
}

}  // namespace

std::string describe_im(const json &answer) {
  std::string text = fmt::format("Controllers: {}\n", number(answer, "controllers"));
  text += describe_im_behaviour(answer);
  text += "So far:\n";
  for (const auto &[name, count] : answer.at("statistics").items()) {
    text += fmt::format("  {:<16} {}\n", name, count.get<std::uint64_t>());
  }
  return text;
}

std::string describe_im_behaviour(const json &answer) {
  const json &now = answer.at("behaviour");
  const json &delay = now.at("delay_ms");
  return "Batches:\n" + describe_batches(now.at("refuse"), "refused:") +
         describe_batches(now.at("drop"), "dropped:") +
         describe_batches(now.at("fail"), "failed whole:") +
         describe_batches(now.at("empty"), "answered empty:") +
         describe_batches(now.at("malform"), "create replies malformed:") +
         fmt::format("  answered after {} to {} ms{}{}\n", number(delay, "min"),
                     number(delay, "max"),
                     now.at("out_of_order").get<bool>() ? ", newest first" : "",
                     now.at("held").get<bool>() ? ", held" : "") +
         describe_elements(now);
}

}  // namespace lumctl
