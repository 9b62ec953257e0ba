// Text utilities: state and operation names, trimming, hex dump.
#include <algorithm>
#include <array>
#include <cstdio>

#include "base/trace.h"
#include "lum_utils/lum_utils.h"

using namespace lum;

static constexpr char trace_area[] = "lum_utils";

const char *lum_intf_state_to_string(std::uint32_t state) {
  static constexpr std::array names = {"NOT READY", "ADMINDOWN", "OPER DOWN", "OPER UP",
                                       "SHUTDOWN"};
  return state < names.size() ? names[state] : "UNKNOWN";
}

const char *lum::ea_operation_name(std::uint32_t operation) {
  static constexpr std::array names = {"RESYNC_END", "CREATE", "UPDATE", "GET_INFO", "DELETE"};
  return operation < names.size() ? names[operation] : nullptr;
}

// White space as in the POSIX locale, whatever the process's own.
static bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// A text that fills all len bytes gets its NUL behind them.
void lum_trim_trailing_spaces(char *buf, std::int32_t len) {
  if (len < 1) return;
  std::int32_t end = len;
  while (end >= 1 && is_space(buf[end - 1])) --end;
  buf[end] = '\0';
}

// One byte is looked at even when there are none to print; a last line of fewer than 16 bytes is
// not traced.
void lum_print_hex_buffer_to_trace(const std::uint8_t *buf, std::int32_t len) {
  LUM_INFO(273, "printing %d bytes in hex from %p:\n", len, static_cast<const void *>(buf));
  constexpr int line_bytes = 16;
  constexpr std::uint8_t entry_width = 5;  // "0xNN" and the blank that the next entry leaves
  char line[128] = {};
  std::uint8_t position = 0;
  const std::int32_t count = buf == nullptr ? 0 : std::max(len, 1);
  for (std::int32_t i = 0; i < count; ++i) {
    std::snprintf(line + position, sizeof line - position, "0x%02x  ", buf[i]);
    position += entry_width;
    if ((i + 1) % line_bytes == 0) {
      line[position] = '\0';
      LUM_INFO(274, "bytes 0x%04X to 0x%04X: %s\n", i - (line_bytes - 1), i, line);
      position = 0;
    }
  }
}
