// From a request to the function that answers it. A command of the API is one row: method, path
// pattern, handler.
#pragma once

#include <span>
#include <string_view>

#include "api/http_server.h"
#include "api/reply.h"

namespace lumd {

class driver;

struct route {
  std::string_view method;
  std::string_view pattern;  // "/v1/ports/{}"; each {} stands for one segment
  api_reply (*handle)(driver &, const api_request &);
};

// Finds the request's route and lets it answer. A path that is not there gets 404, a method that it
// does not know 405, a change asked for where none may be made 403, a body that is not JSON 400.
http_reply answer(driver &node, std::span<const std::span<const route>> groups,
                  const http_request &request);

}  // namespace lumd
