// What performance monitoring keeps of a controller, as the API shows it.
#pragma once

#include <optional>
#include <string_view>

#include "lum_linux/stores.h"
#include "router.h"

namespace lumd {

enum class pm_bins { quarter, day };

// "15min" or "24h".
std::optional<pm_bins> pm_bins_of(std::string_view name);

// The current bin of each length or, with `bins`, that and the finished ones of one length, newest
// first.
json show_pm(const lum_linux::pm_interface &interface, std::optional<pm_bins> bins);

}  // namespace lumd
