// Node and module descriptions of any text.
#include <cstdint>
#include <string_view>

#include "lum_linux/image.h"
#include "lum_linux/node_description.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  lum_linux::parse_node_description(text, "node.toml");
  lum_linux::compile_module_image(text, "module.toml");
  return 0;
}
