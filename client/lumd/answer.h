// All that the driver answers to: the API and the metrics.
#pragma once

#include "api/http_server.h"

namespace lumd {

class driver;

http_reply answer(driver &node, const http_request &request);

}  // namespace lumd
