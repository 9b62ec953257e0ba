#include "names.h"

#include <algorithm>

#include "words/leds.h"
#include "words/port_states.h"

namespace lumctl {
namespace {

using lum_words::port_state;
using name = std::string_view;

colour colour_of(port_state state) {
  switch (state) {
    case port_state::up:
      return colour::good;
    case port_state::failing:
      return colour::bad;
    case port_state::coming_up:
    case port_state::empty:
    case port_state::stale:
    case port_state::upgrading:
    case port_state::going:
    case port_state::absent:
      return colour::warning;
  }
  return colour::warning;
}

// Which states are looked at first where something is wrong.
double badness_of(port_state state) {
  switch (state) {
    case port_state::failing:
      return 6;
    case port_state::stale:
      return 5;
    case port_state::going:
    case port_state::coming_up:
      return 3;
    case port_state::upgrading:
      return 2;
    case port_state::empty:
    case port_state::absent:
      return 1;
    case port_state::up:
      return 0;
  }
  return 0;
}

constexpr double badness_of_alarms = 4;

}  // namespace

colour colour_of_port(name state) {
  for (const lum_words::named_port_state &known : lum_words::port_states) {
    if (known.name == state) return colour_of(known.id);
  }
  return colour::warning;
}

double badness_of_port(name state, bool has_alarms) {
  double badness = badness_of(port_state::failing);  // what is not known may be as bad
  for (const lum_words::named_port_state &known : lum_words::port_states) {
    if (known.name == state) badness = badness_of(known.id);
  }
  return has_alarms ? std::max(badness, badness_of_alarms) : badness;
}

colour colour_of_led(name state) {
  if (state == lum_words::led_normal) return colour::good;
  return state == lum_words::led_fault ? colour::bad : colour::none;
}

std::vector<std::string> as_words(std::span<const name> names) {
  return {names.begin(), names.end()};
}

std::string listed(std::span<const name> names, name last) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? last : ", ";
    text += names[i];
  }
  return text;
}

}  // namespace lumctl
