// What has happened, one line an event.
#pragma once

#include <string>

#include "api/json.h"
#include "terminal/style.h"

namespace lumctl {

std::string describe_event(const json &event, const style &output);

// An answer of the driver's, with what is to be known of it.
std::string describe_events(const json &answer, const style &output);

}  // namespace lumctl
