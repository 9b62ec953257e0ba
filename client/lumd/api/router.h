// From a request to the function that answers it. A command of the API is one row: method, path
// pattern, handler, and what its query may have.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "api/http_server.h"
#include "api/reply.h"

namespace lumd {

class driver;

struct route {
  std::string_view method;
  std::string_view pattern;  // "/v1/ports/{name}"; what is in braces stands for one segment
  api_reply (*handle)(driver &, const api_request &);
  std::array<std::string_view, 4> queries = {};  // names, then empty texts

  std::span<const std::string_view> known_queries() const;
};

using route_groups = std::span<const std::span<const route>>;

// Finds the request's route and lets it answer. A path that is not there gets 404, a method that it
// does not know 405, a change asked for where none may be made 403, a query with anything that the
// route does not know or a body that is not JSON 400. What the peer has already gets 304.
http_reply answer(driver &node, route_groups groups, const http_request &request);

}  // namespace lumd
