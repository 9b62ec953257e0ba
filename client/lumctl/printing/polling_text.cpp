#include "printing/polling_text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstdint>
#include <ctime>
#include <nlohmann/json.hpp>

#include "printing/port_cells.h"
#include "wording/numbers.h"

namespace lumctl {

std::string describe_polling(const json &polling) {
  std::string text = fmt::format("{:%H:%M:%S}  cycle {}", fmt::localtime(std::time(nullptr)),
                                 polling.at("cycles").get<std::uint64_t>());
  if (const json &last = polling.at("last"); last.is_object()) {
    text +=
        fmt::format(": {} in {} s", lum_wording::counted(last.at("ports").get<unsigned>(), "port"),
                    number_or_dash(last.at("duration_s"), 3));
    if (last.contains("lateness_s")) {
      text += fmt::format(", {} s late", number_or_dash(last.at("lateness_s"), 3));
    }
    text += fmt::format(", ended {} s ago", number_or_dash(last.at("age_s"), 0));
  }
  if (polling.at("running").get<bool>()) text += ", the next is running";
  if (const json &halt = polling.at("halt"); halt.is_object()) {
    text += fmt::format("; not polled for {} s: {}", number_or_dash(halt.at("for_s"), 0),
                        text_or_dash(halt.at("reason")));
  }
  return text;
}

std::string describe_halt(const json &halt) {
  if (!halt.is_object()) return {};
  return fmt::format("No module has been polled for {} s: {}\n",
                     number_or_dash(halt.at("for_s"), 0), text_or_dash(halt.at("reason")));
}

}  // namespace lumctl
