// Events as they happen, as server-sent events.
#pragma once

#include <cstdint>
#include <string>

#include "api/http_server.h"

namespace lumd {

class driver;

class event_stream : public http_stream {
 public:
  // From the first with a number above `since` on; of the port alone when it is not empty. `node`
  // must live until the process ends.
  event_stream(driver &node, uint64_t since, std::string port)
      : node_(node), since_(since), port_(std::move(port)) {}

  std::string next() override;

 private:
  driver &node_;
  bool has_begun_ = false;
  uint64_t since_;
  const std::string port_;
};

}  // namespace lumd
