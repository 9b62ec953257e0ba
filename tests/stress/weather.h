// Everything around the library that can go wrong, going wrong at random.
#pragma once

#include "crew.h"
#include "node.h"

namespace stress {

// Changes one thing: how the interface manager answers, a module, an upgrade, the trace channels.
void change_weather(node &node, worker &self);

// Everything works again, and what was waiting is answered.
void clear_weather(node &node);

}  // namespace stress
