// Bodies of requests and answers, of any bytes. A document that is taken is no deeper than allowed,
// has no member twice, and is the same when it is written and read again; one that is not has a
// word why.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "json/document.h"
#include "json/read.h"

namespace {

int depth_of(const nlohmann::ordered_json &document) {
  int deepest = 0;
  if (!document.is_structured()) return 0;
  for (const auto &part : document) deepest = std::max(deepest, depth_of(part));
  return deepest + 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string why;
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  const auto document = lum_json::read(text, why);
  if (document.is_discarded() != !why.empty()) std::abort();
  if (document.is_discarded()) return 0;
  if (depth_of(document) > lum_json::deepest + 1) std::abort();
  const std::string written = document.dump();
  if (lum_json::read(written, why).dump() != written) std::abort();
  return 0;
}
