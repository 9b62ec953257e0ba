// Polling, and why it stands still.
#pragma once

#include "views/json.h"

namespace lumd {

class driver;

// The polling thread's pace.
json show_polling(driver &node);

// Beside every reading: null while modules are polled, else "reason" and "for_s", since when.
json show_halt(driver &node);

}  // namespace lumd
