// Node and module descriptions of any text: one is read, or refused with a problem at a line of it,
// in words that steer no terminal.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "lum_linux/image.h"
#include "lum_linux/node_description.h"

namespace {

using lum_linux::description_problem;

bool steers(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F;
}

void look_at(std::string_view text, bool is_read,
             const std::vector<description_problem> &problems) {
  if (is_read != problems.empty()) std::abort();
  const auto lines = static_cast<std::uint32_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  std::uint32_t before = 0;
  for (const description_problem &problem : problems) {
    if (problem.message.empty()) std::abort();
    if (problem.line < before || problem.line > lines) std::abort();
    before = problem.line;
    const std::string shown = to_string(problem);
    if (std::any_of(shown.begin(), shown.end(), steers)) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  const auto node = lum_linux::parse_node_description(text, "node.toml");
  look_at(text, node.node.has_value(), node.problems);
  const auto module = lum_linux::compile_module_image(text, "module.toml");
  look_at(text, module.image.has_value(), module.problems);
  return 0;
}
