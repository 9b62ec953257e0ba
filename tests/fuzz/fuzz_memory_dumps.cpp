// Dumps of modules' memories, of any bytes: what they are taken for, what they say and how that is
// shown.
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string_view>

#include "decode/decoded.h"
#include "decode/memory_dump.h"
#include "printing/dump_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const lumctl::dump_reading read = lumctl::read_dump({reinterpret_cast<const char *>(data), size});
  if (read.dump.has_value() != read.wrong.empty()) std::abort();
  if (!read.dump) return 0;
  lumctl::json shown = {{"source", "input"}};
  shown.update(lumctl::decode(*read.dump));
  for (const char c : lumctl::describe_dump(shown, {})) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && byte != '\n') || byte == 0x7F) std::abort();  // steers the terminal
  }
  return 0;
}
