// The page in the browser, which the driver serves beside its API.
#pragma once

#include <optional>

#include "api/http_server.h"

namespace lumd {

// Nothing when the request asks for something else than "/" and what is below "/panel/".
std::optional<http_reply> answer_with_panel(const http_request &request);

}  // namespace lumd
