// The interface manager, for people.
#pragma once

#include <string>

#include "api/json.h"

namespace lumctl {

// What it is asked to do wrong, and what it has done.
std::string describe_im(const json &answer);

// Only what it is asked to do wrong.
std::string describe_im_behaviour(const json &answer);

}  // namespace lumctl
