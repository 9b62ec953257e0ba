// Formats of trace lines: which arguments a line has, and the line made of them again.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "traces/ring_layout.h"

namespace lum_linux {

struct line_arguments {
  size_t count = 0;
  std::array<char, rings::most_arguments> letters{};        // 's', 'd' or 'D'
  std::array<uint16_t, rings::most_arguments> precision{};  // bytes that are read of a text
};

// Whether records can hold the arguments of such a line: each conversion has the letter of its
// kind. Else the caller makes the text itself.
bool understand(std::string_view format, std::string_view signature, line_arguments &understood);

// The text of a record's words behind its head, as printf would have it and no longer than a line
// is. Says in `cut` whether it was cut. False when the words are not of such a format.
bool render(std::string_view format, std::string_view signature, std::span<const uint64_t> words,
            std::string &text, bool &cut);

// As above of a text that the caller has made.
bool render_text(std::span<const uint64_t> words, std::string &text, bool &cut);

// One line of printable ASCII: all other bytes spelled out.
std::string printable_text(std::string_view text);

// "#18 text", one line of printable ASCII: line ends at its own end are dropped, all other bytes
// spelled out.
std::string printable_line(uint32_t point, std::string_view text, bool cut);

}  // namespace lum_linux
