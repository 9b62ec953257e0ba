// What the API has, for those who find their way through it.
#pragma once

#include "api/router.h"
#include "views/json.h"

namespace lumd {

// Every route, as the router knows it, each with the line that the OpenAPI document has for it.
json show_index(route_groups groups);

// That document, as it goes out.
const char *openapi_text();

}  // namespace lumd
