// What performance monitoring keeps of a controller, as the API shows it.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "node/lifecycle.h"
#include "views/json.h"

namespace lumd {

class driver;

enum class pm_bins { quarter, day };

// How old the readings are that performance monitoring was handed last: that of their poll,
// whenever it was handed on. Nothing before the first.
std::optional<std::chrono::steady_clock::duration> age_of_kept(driver &node, uint32_t ifhandle);

// From its name.
std::optional<pm_bins> pm_bins_of(std::string_view name);

// The controllers of the ports: of each the current bin of each length or, with `bins`, that and
// the finished ones of one length, newest first.
json show_pm(driver &node, const port_list &ports, std::optional<pm_bins> bins);

}  // namespace lumd
