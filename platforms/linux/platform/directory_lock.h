// Keeps other processes away from the state directory.
#pragma once

#include <filesystem>

#include "modules/unique_fd.h"

namespace lum_linux {

// Holds the directory from acquire() to release() or its own end.
class directory_lock {
 public:
  // Returns 0, 11 when another process has the directory, or the errno of the file operation.
  int acquire(const std::filesystem::path &directory);
  void release() { file_ = unique_fd(); }

 private:
  unique_fd file_;
};

}  // namespace lum_linux
