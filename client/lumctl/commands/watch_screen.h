// The live view on a terminal.
#pragma once

#include "commands/port_feed.h"
#include "printing/ports_table.h"

namespace lumctl {

struct watching {
  port_selection ports;
  ports_wish wish;
  double interval = 0;  // seconds; 0: as polling cycles end
  unsigned count = 0;   // pictures; 0: until it is ended
};

// Draws on the whole terminal until a key or an interrupt ends it. `first` are answers to begin
// with. Returns the exit status.
int watch_on_screen(const session &now, const watching &wanted, const port_news &first);

}  // namespace lumctl
