// A request to the driver's own API, as anybody else would make it.
#pragma once

#include <chrono>

#include "api/http_server.h"

namespace lumd {

// Whether a request through its socket, or without one from within, is answered within about
// `bound`.
bool api_answers(const http_server &api, std::chrono::seconds bound);

}  // namespace lumd
