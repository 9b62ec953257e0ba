// Settings and their changes, for people.
#pragma once

#include <string>
#include <vector>

#include "api/json.h"
#include "terminal/style.h"

namespace lumctl {

// Where a sub-port's settings are changed.
std::string settings_path(const std::string &port);

// The settings of ports: saved, in force and in the module, a line each.
std::string describe_settings(const json &answer, const style &where);

// A change of one sub-port's settings, old and new, or one that was only to be looked at.
std::string describe_change(const json &reply);

// What a deletion drops, a line for each sub-port; empty when it drops nothing.
std::vector<std::string> describe_dropped(const json &plan);

}  // namespace lumctl
