// Numbers in sentences.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace lum_wording {

// "1 port", "2 ports"; `several` is given where it is not made with an s.
inline std::string counted(std::uint64_t number, std::string_view one,
                           std::string_view several = {}) {
  std::string text = std::to_string(number) + " ";
  if (number == 1) return text.append(one);
  return several.empty() ? text.append(one).append("s") : text.append(several);
}

// "1st", "2nd", "11th"
inline std::string ordinal(std::uint64_t number) {
  const std::uint64_t tens = number / 10 % 10;
  const std::uint64_t ones = tens == 1 ? 0 : number % 10;
  return std::to_string(number) + (ones == 1 ? "st" : ones == 2 ? "nd" : ones == 3 ? "rd" : "th");
}

}  // namespace lum_wording
