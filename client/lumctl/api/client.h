// Asks the driver through its socket.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace lumctl {

using json = nlohmann::ordered_json;

enum class outcome {
  done,
  refused,      // the driver said no
  unreachable,  // no driver answered, or nothing that can be understood
};

struct api_result {
  outcome what = outcome::unreachable;
  json body;          // when done
  std::string error;  // else: why, in one line
};

// One request, and its answer, within half a minute. `target` is the encoded path and query; `body`
// goes out when it is not null.
api_result call(const std::string &socket, const std::string &method, const std::string &target,
                const json &body = nullptr);

// A text as one segment of a path or one value of a query.
std::string encoded(const std::string &text);

}  // namespace lumctl
