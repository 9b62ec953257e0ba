// Everything around the library that can go wrong, going wrong at random.
#pragma once

#include "crew.h"
#include "node.h"

namespace stress {

// Changes a few things: how the interface manager answers, a module, an upgrade, the LEDs, a trace
// channel. LEDs are troubled only where troubled_leds stands before them.
void change_weather(node &node, worker &self);

// Everything works again, and what was waiting is answered.
void clear_weather(node &node);

}  // namespace stress
