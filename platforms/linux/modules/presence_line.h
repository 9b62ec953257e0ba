// A cage's presence line: a file of the kernel's that says whether there is a module.
#pragma once

#include <filesystem>
#include <string>

#include "cerr.h"

namespace lum_linux {

struct presence_reading {
  cerrno code = 0;  // errno of a file that cannot be read
  bool there = false;
};

class presence_line {
 public:
  // `value` is what the file holds, but for blanks around it, while there is a module.
  presence_line(std::filesystem::path file, std::string value);

  presence_reading read() const;
  const std::filesystem::path &file() const { return file_; }

 private:
  std::filesystem::path file_;
  std::string value_;
};

}  // namespace lum_linux
