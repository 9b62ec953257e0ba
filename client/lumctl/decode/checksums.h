// The check bytes that a module's memory has by the standard that it says it follows.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "decode/memory_dump.h"

namespace lumctl {

enum class memory_standard { unknown, sff_8636, cmis };

struct known_identifier {
  std::uint8_t code;
  std::string_view name;
  memory_standard standard;
};

// Null for a code that nothing is known of.
const known_identifier *find_identifier(std::uint8_t code);
std::string_view name_of(memory_standard standard);

// The byte at `place` is the sum, in 8 bits, of those from `first` to `last`.
struct check_byte {
  std::string_view name;
  std::uint32_t page;
  std::uint32_t first;
  std::uint32_t last;
  std::uint32_t place;
};

// Those that the standard has in the dump's pages. A module that says it has no pages has page 0's
// alone.
std::vector<check_byte> check_bytes(memory_standard standard, const memory_dump &dump);

// The sum; nothing when one of the bytes is not in the dump.
std::optional<std::uint8_t> sum_of(const check_byte &check, const memory_dump &dump);

// Whether every byte of the check, its own too, is zero: a page that was not saved, or is not used.
bool is_blank(const check_byte &check, const memory_dump &dump);

}  // namespace lumctl
