// One thing that has happened.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "words/severities.h"

namespace lumd {

using lum_words::severity;

struct event {
  using detail = std::pair<std::string, std::variant<bool, int64_t, std::string>>;

  uint64_t number = 0;  // rises from event to event, over restarts too; 0: not given yet
  std::chrono::system_clock::time_point time{};
  severity how_bad = severity::ok;
  std::string kind;  // of words/events.h or words/findings.h
  std::string port;  // its name; empty where it is the node's
  std::optional<uint32_t> sub_port;
  std::string text;             // one line for people
  std::vector<detail> details;  // for programs
  uint64_t left_out = 0;        // of its like just before it, which came too fast to be told
};

}  // namespace lumd
