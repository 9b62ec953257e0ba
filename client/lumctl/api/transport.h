// Requests and answers as they go over the wire. Heavy headers are in its source alone.
#pragma once

#include <chrono>
#include <string>

#include "api/client.h"
#include "api/destination.h"

namespace lumctl {

struct question {
  bool is_change = false;  // a POST; else a GET
  std::string target;
  std::string body = {};
};

// All of it within `patience`, the look for a name's addresses among it.
raw_answer exchange(const destination &to, const question &asked,
                    std::chrono::milliseconds patience);

}  // namespace lumctl
