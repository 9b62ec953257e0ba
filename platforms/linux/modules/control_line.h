// A line of a cage that can be steered: reset or low power.
#pragma once

#include <filesystem>
#include <optional>

#include "lum_linux/modules.h"

namespace lum_linux {

class control_line {
 public:
  explicit control_line(line_description line) : line_(std::move(line)) {}

  line_status read() const;
  const std::filesystem::path &file() const { return line_.file; }
  // Fails with module_failing when the file does not hold afterwards what was written.
  cerrno set(bool on) const;

 private:
  line_description line_;
};

}  // namespace lum_linux
