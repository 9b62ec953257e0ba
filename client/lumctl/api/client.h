// Asks the driver, through its socket or from afar.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "api/destination.h"
#include "api/json.h"

namespace lumctl {

enum class outcome {
  done,
  refused,      // the driver said no
  unreachable,  // no driver answered, or nothing that can be understood
};

struct api_result {
  outcome what = outcome::unreachable;
  std::shared_ptr<const json> body;  // when done
  std::string error;                 // else: why, in one line
};

// One request, and its answer, within `patience`. `target` is the encoded path and query. From
// afar nothing is changed, and a post refused.
api_result get(const destination &driver, const std::string &target,
               std::chrono::milliseconds patience);
api_result post(const destination &driver, const std::string &target, const json &body,
                std::chrono::milliseconds patience);

struct raw_answer {
  outcome what = outcome::unreachable;  // done whatever the status
  unsigned status = 0;
  std::string body;   // as it came
  std::string error;  // unless done: why, in one line
};

// The same for an answer of any status and any kind of text.
raw_answer get_as_it_is(const destination &driver, const std::string &target,
                        std::chrono::milliseconds patience);

// Why the driver refuses, as its problem document says; nothing when it is none.
std::optional<std::string> reason_in(const json &problem);

// A text as one segment of a path or one value of a query.
std::string encoded(const std::string &text);

}  // namespace lumctl
