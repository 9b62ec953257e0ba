// The alarms of sub-ports as the API shows them, from the alarm service's store.
#pragma once

#include "driver.h"
#include "lum_linux/stores.h"
#include "port_data.h"
#include "router.h"

namespace lumd {

// The names of the alarms in a bitmap, in the order of their bits; "bit-7" for one without a name.
json alarm_names(uint64_t bitmap);

// A controller's alarms and counters, or null when the store does not know it. The port is one that
// `copy` is of.
json show_alarms(const lum_linux::port_description &port, const port_copy &copy,
                 std::size_t sub_port);

}  // namespace lumd
