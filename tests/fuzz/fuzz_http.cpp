// Requests as the bytes that come over a connection, through the parser, what is refused of a
// header, the router and the handlers, on a node with a module. The node stays up from one input to
// the next; what would take it down or make it wait is asked of it as by somebody who may only
// look.
#include "api/http_message.h"

#include <stdlib.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>

#include "answer.h"
#include "lum_linux/node_description.h"
#include "node/driver.h"

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t header_limit = 8 * 1024;
constexpr std::uint64_t body_limit = 256 * 1024;

// Changes that end with the answer.
constexpr std::array<std::string_view, 4> quick = {"/settings", "/v1/inject/", "/poke",
                                                   "/v1/statistics/clear"};

constexpr const char *description = R"(name = "fuzzed"
rack = 0
state_directory = "state"
trace_directory = "traces"
led_directory = "leds"
api_socket = "lumd.sock"
[[slot]]
number = 1
[[slot.instance]]
number = 0
[[slot.instance.port]]
number = 0
handle = 1
name = "west"
backend = "simulated"
module = "module.toml"
led = "west"
)";

constexpr const char *module_text = R"(vendor = "II-VI"
firmware = [0, 6]
memory_map = "new"
temperature = 41.25
supply = 3.3
[sub_port_0]
powers_dbm = [-2.85, 2.1, -19.4]
[sub_port_1]
powers_dbm = [-5.5, 15.0, -20.2]
)";

class shelf {
 public:
  shelf();
  ~shelf() { fs::remove_all(folder_); }
  shelf(const shelf &) = delete;
  shelf &operator=(const shelf &) = delete;
  lumd::driver &node() { return *node_; }

 private:
  fs::path folder_;
  lumd::driver *node_ = nullptr;  // until the process ends
};

shelf::shelf() {
  std::string made = (fs::temp_directory_path() / "lum-fuzz-XXXXXX").string();
  if (mkdtemp(made.data()) == nullptr) abort();
  folder_ = made;
  std::ofstream(folder_ / "node.toml") << description;
  std::ofstream(folder_ / "module.toml") << module_text;
  const auto read = lum_linux::read_node_description(folder_ / "node.toml");
  if (!read.node) abort();
  std::string error;
  node_ = lumd::driver::start(*read.node, *read.node, true, error);
  if (node_ == nullptr) abort();
  node_->bring_up();
  while (!node_->is_brought_up()) std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

void look_at(const lumd::http_reply &reply) {
  if (reply.status < 200 || reply.status > 599) abort();
  if (reply.stream) reply.stream->next();
  const auto message = lumd::to_message(reply, true);
  if (message.body() != reply.body) abort();
}

bool is_quick(const std::string &target) {
  return std::any_of(quick.begin(), quick.end(), [&target](std::string_view part) {
    return target.find(part) != std::string::npos;
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static shelf the_shelf;
  lumd::http::request_parser<lumd::http::string_body> parser;
  parser.header_limit(header_limit);
  parser.body_limit(body_limit);
  parser.eager(true);
  lumd::error_code error;
  parser.put(lumd::net::const_buffer(data, size), error);
  if (!error && !parser.is_done()) return 0;  // there is more to come
  if (error) {
    if (const auto reply = lumd::answer_to_unreadable(error)) look_at(*reply);
    return 0;
  }
  const auto message = parser.release();
  lumd::http_request request = lumd::request_of(message);
  if (request.method == "HEAD") request.method = "GET";
  if (const auto refused = lumd::refusal_of_header(message)) {
    look_at(*refused);
    return 0;
  }
  if (!is_quick(request.target)) request.barred = "this takes longer than an input may";
  look_at(lumd::answer(the_shelf.node(), request));
  return 0;
}
