// A file that is read again and again stays open between two reads, as long as it is the one at its
// path.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "modules/unique_fd.h"

namespace lum_linux {

// Which file is at a path, as one number: a file put in another's place has another inode or, where
// the number is used again, another time of birth. Nothing with errno where there is none.
std::optional<uint64_t> number_of_file(const std::filesystem::path &file);

// Used by one thread at a time.
class kept_file {
 public:
  // Its descriptor for reading, of the file that is at the path now; below 0 with the errno when it
  // cannot be had, and EIO for what is no ordinary file. The descriptor stays the kept file's.
  int open(const std::filesystem::path &file, int &error);
  // The same while the file that was opened last has a name still, whatever is at the path: so one
  // that was deleted or replaced is noticed without a search for the path, and a folder on its way
  // that was moved is not.
  int open_while_named(const std::filesystem::path &file, int &error);
  // The number of the file that is open.
  uint64_t number() const { return number_; }
  // After a read that has failed: whatever is at the path is opened anew.
  void close() { fd_ = unique_fd(); }

 private:
  unique_fd fd_;
  uint64_t number_ = 0;
};

}  // namespace lum_linux
