// The trace catalogue that the build extracted from the library's sources.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace support {

struct catalogue_entry {
  uint32_t point;
  std::string area;     // "-" when the number is reserved
  std::string channel;  // "-" when the number is reserved
  std::string message;  // as written in the source, escapes included
};

// Ordered by point, 1 to 278. Read once.
const std::vector<catalogue_entry> &trace_catalogue();

// A format with its control characters written as in the source.
std::string as_written(const std::string &format);

}  // namespace support
