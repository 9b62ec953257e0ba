#include "commands/place.h"

#include <fmt/format.h>

#include <charconv>
#include <nlohmann/json.hpp>

namespace lumctl {

std::string read_place(const std::string &text, json &body) {
  const char *at = text.data();
  const char *const end = at + text.size();
  for (const char *member : {"slot", "instance"}) {
    unsigned number = 0;
    const auto [stop, error] = std::from_chars(at, end, number);
    if (error != std::errc()) break;
    body[member] = number;
    if (stop == end) return {};
    if (*stop != '/') break;
    at = stop + 1;
  }
  return fmt::format("\"{}\" is not SLOT or SLOT/INSTANCE", text);
}

std::string check_place(const std::string &text) {
  json ignored;
  return read_place(text, ignored);
}

}  // namespace lumctl
