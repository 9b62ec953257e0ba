// Keeps two drivers from running one node.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace lumd {

// Held until the process ends, however it ends.
class node_lock {
 public:
  // Makes the state directory when it is not there, and locks it. Returns nothing with `error`
  // saying why.
  static std::optional<node_lock> take(const std::filesystem::path &state_directory,
                                       std::string &error);
};

}  // namespace lumd
