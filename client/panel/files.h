// The files of the page in the browser, as the build has found them.
#pragma once

#include <span>
#include <string_view>

namespace lum_panel {

struct file {
  std::string_view name;  // "index.html"
  std::string_view type;  // its Content-Type
  std::string_view bytes;
};

// In the order of their names.
std::span<const file> files();

}  // namespace lum_panel
