// What the performance-monitoring and alarm stores hold, for whoever shows it. The library fills
// them through pm_ui.h and ptah.h.
//
// Every call may come from any thread and waits for nothing but the store's own lock. Times are
// those of the store's clock.
#pragma once

#include "lum_linux/alarms.h"
#include "lum_linux/performance.h"
#include "lum_linux/store_time.h"
