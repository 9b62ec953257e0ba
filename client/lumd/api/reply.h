// Requests of the API and the replies to them. What the node answers becomes a status here.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "api/http_server.h"
#include "api/query.h"
#include "lum_linux/node_description.h"
#include "node/outcome.h"
#include "views/json.h"

namespace lumd {

struct api_request {
  std::vector<std::string> parameters;  // what stood in each place of the pattern, decoded
  query_members query;
  json body;                  // null when the request has none
  std::string accept;         // the header of that name
  std::string last_event_id;  // likewise
  std::string user;           // who asks, for people
};

// The value behind a key of the query.
std::optional<std::string> queried(const api_request &request, const std::string &key);

// Whether a key of the query is there alone or as "true". What is neither that nor "false" is said
// in `wrong`.
bool is_queried(const api_request &request, const std::string &key, std::string &wrong);

struct api_reply {
  unsigned status = 200;
  json body = nullptr;
  // A member of the body that is text already; it comes first.
  std::string member_name = {};
  std::string member_text = {};
  // What goes out instead of the body when it has a type.
  std::string text = {};
  std::string text_type = {};
  std::shared_ptr<http_stream> stream = {};  // goes out instead of both
  std::string allow = {};                    // methods that the path knows, with a 405
};

// As it goes out, its document under the schema's number.
http_reply to_http(api_reply reply);

// With a problem document.
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
