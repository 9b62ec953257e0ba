#include "api/accept.h"

#include <algorithm>
#include <string>

#include "node/split.h"

namespace lumd {
namespace {

// A part of a header's list, without blanks and in small letters.
std::string folded(std::string_view part) {
  std::string text;
  for (const char c : part) {
    if (c != ' ' && c != '\t') text += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  }
  return text;
}

// "q=0", "q=0.00": it is named as what is not wanted.
bool is_refused(std::string_view parameter) {
  return parameter.starts_with("q=") &&
         parameter.find_first_not_of("0.", 2) == std::string_view::npos;
}

}  // namespace

bool accepts_event_stream(std::string_view accept) {
  for (const std::string_view range : split(accept, ',')) {
    const auto parts = split(range, ';');
    if (folded(parts.front()) != "text/event-stream") continue;
    return std::none_of(parts.begin() + 1, parts.end(),
                        [](std::string_view one) { return is_refused(folded(one)); });
  }
  return false;
}

}  // namespace lumd
