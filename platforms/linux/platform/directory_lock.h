// Keeps other processes away from the state directory.
#pragma once

#include <filesystem>

#include "modules/unique_fd.h"

namespace lum_linux {

// Holds the directory from acquire() to release() or its own end.
class directory_lock {
 public:
  // Returns 0, 11 when another process has the directory, or the errno of opening it. Writes
  // nothing that is needed, so it does on a full or read-only disk too.
  int acquire(const std::filesystem::path &directory);
  void release();

 private:
  unique_fd directory_;
  unique_fd file_;  // for those who look for it; none where it cannot be made
};

}  // namespace lum_linux
