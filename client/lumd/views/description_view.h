// The description that the driver runs with.
#pragma once

#include "node/description_facts.h"
#include "views/json.h"

namespace lumd {

class driver;

// Its file and its facts.
json show_description(driver &node);

// The facts of such a document. Throws json::exception for any other.
description_facts facts_in(const json &shown);

}  // namespace lumd
