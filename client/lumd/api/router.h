// From a request to the function that answers it. A command of the API is one row: method, path
// pattern, handler.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "http_server.h"

namespace lumd {

class driver;

// Objects keep the order in which their members were put in: people read them too.
using json = nlohmann::ordered_json;

struct api_request {
  std::vector<std::string> parameters;       // what stood for each {} of the pattern, decoded
  std::map<std::string, std::string> query;  // decoded
  json body;                                 // null when the request has none
  std::string accept;                        // the header of that name
};

struct api_reply {
  unsigned status = 200;
  json body = nullptr;
  // What goes out instead of the body when it has a type.
  std::string text = {};
  std::string text_type = {};
};

// {"error": message}
api_reply refuse(unsigned status, const std::string &message);

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
