// What has happened, as the API tells it.
#pragma once

#include <cstdint>
#include <string>

#include "records/event.h"
#include "views/json.h"

namespace lumd {

class driver;

json show_event(const event &one);

// Whether events are kept: "last" is the highest number, "lost" counts those that never will be.
json show_event_record(driver &node);

// The latest `most` of those with a number above `since`; of the port alone when it is not empty.
json show_events(driver &node, uint64_t since, const std::string &port, std::size_t most);

}  // namespace lumd
