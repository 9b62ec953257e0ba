// The known word that was most likely meant by one that nobody knows.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace lum_wording {

// Nobody mistypes a longer word, and comparing it with many would take its time.
inline constexpr std::size_t longest_compared = 64;

// Small and capital letters are one and the same, and so are dashes that join words.
inline char folded(char letter) {
  if (letter == '_') return '-';
  return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
}

// How many letters have to be replaced, added, left out or swapped with their neighbour to make one
// of the other.
inline std::size_t distance(std::string_view one, std::string_view other) {
  std::vector<std::size_t> before_last(other.size() + 1);
  std::vector<std::size_t> last(other.size() + 1);
  std::vector<std::size_t> now(other.size() + 1);
  for (std::size_t j = 0; j < last.size(); ++j) last[j] = j;
  for (std::size_t i = 1; i <= one.size(); ++i) {
    now[0] = i;
    for (std::size_t j = 1; j <= other.size(); ++j) {
      const bool same = folded(one[i - 1]) == folded(other[j - 1]);
      now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
      const bool swapped = i > 1 && j > 1 && folded(one[i - 1]) == folded(other[j - 2]) &&
                           folded(one[i - 2]) == folded(other[j - 1]);
      if (swapped) now[j] = std::min(now[j], before_last[j - 2] + 1);
    }
    std::swap(before_last, last);
    std::swap(last, now);
  }
  return last.back();
}

// The word of `known` that differs least from `word`, by a third of its letters at most; empty when
// there is none.
template <typename Words>
std::string_view nearest(std::string_view word, const Words &known) {
  std::string_view found;
  std::size_t least = std::numeric_limits<std::size_t>::max();
  for (const auto &one : known) {
    const std::string_view candidate = one;
    const auto [shorter, longer] = std::minmax({word.size(), candidate.size()});
    const std::size_t bound = longer / 3;
    if (longer > longest_compared || longer - shorter > bound) continue;
    const std::size_t differs = distance(word, candidate);
    if (differs < least && differs <= bound) {
      least = differs;
      found = candidate;
    }
  }
  return found;
}

// ` (did you mean "port"?)`, to stand behind what is wrong; empty when nothing is near.
template <typename Words>
std::string did_you_mean(std::string_view word, const Words &known) {
  const std::string_view found = nearest(word, known);
  return found.empty() ? "" : " (did you mean \"" + std::string(found) + "\"?)";
}

}  // namespace lum_wording
