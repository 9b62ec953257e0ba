// The store that keeps the settings, and what is wrong with what it keeps.
#pragma once

#include <cstdint>
#include <string>

#include "lum_linux/checkpoints.h"
#include "lum_linux/node_description.h"
#include "views/json.h"

namespace lumd {

// Whether it is known which settings of the port were saved before.
bool saved_settings_are_known(const lum_linux::checkpoint_status &store, uint32_t rsip);

// Of a trouble as requests and metrics call it.
std::string trouble_name(lum_linux::record_trouble trouble);

// "usable", and the "reason" why it is not; "readable", whether what was saved before is known all
// the same; "doubt", what keeps losses from being noticed; and the
// "records" that something is wrong with, each with the port that it belongs to.
json show_store(const lum_linux::checkpoint_status &store, const lum_linux::node_description &node);

// The same for one port: "usable", "readable", "reason" and the "troubles" of its record.
json show_store_of(const lum_linux::checkpoint_status &store, uint32_t rsip);

}  // namespace lumd
