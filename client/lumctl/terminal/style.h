// How text comes out on this terminal.
#pragma once

#include <cstddef>
#include <string>

namespace lumctl {

enum class colour { none, good, bad, warning, faint, strong };

struct style {
  bool colours = false;     // the terminal of standard output has them, NO_COLOR is not set
  std::size_t columns = 0;  // to fold to; 0: nothing folds
};

style style_of_output();

// The text in the colour, when there are colours.
std::string painted(const style &where, const std::string &text, colour paint);

// The text as one that has changed: inverse, or with a mark behind it when there are no colours.
constexpr char change_mark = '*';
std::string marked(const style &where, const std::string &text, colour paint);

}  // namespace lumctl
