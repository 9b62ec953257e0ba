// The form of every error that the driver's HTTP answers with: a problem document (RFC 9457).
#pragma once

#include <string>

#include "views/json.h"

namespace lumd {

struct http_reply;

inline constexpr const char *problem_type = "application/problem+json";

// Of a kind that its status tells: "type", "title", "status" and the "detail", which is "error"
// too.
json problem(unsigned status, const std::string &detail);

// As it goes out, for what never gets to a route.
http_reply problem_reply(unsigned status, const std::string &detail);

}  // namespace lumd
