// Requests of the API and the replies to them. What the node answers becomes a status here.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "lum_linux/node_description.h"
#include "node/outcome.h"
#include "views/json.h"

namespace lumd {

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

// With the status for what the node says no to.
api_reply refuse(const refusal &refused);

// Where no port, or no sub-port, is meant by the name.
api_reply refuse_port(const lum_linux::node_description &node, const std::string &name);

// Leaves the one sub-port in a list of sub-ports, each of which has its number; all when none is
// wanted.
void keep_sub_port(std::optional<uint32_t> wanted, json &sub_ports);

// `show` makes a document of the report.
template <typename Report, typename Show>
api_reply reply_to(const outcome<Report> &done, const Show &show) {
  return done ? api_reply{200, show(*done)} : refuse(done.refused());
}

}  // namespace lumd
