// How large the terminal of standard output is.
#pragma once

#include <cstddef>

namespace lumctl {

// What COLUMNS says, or the terminal; 120 where neither knows.
std::size_t terminal_columns();

// 24 where the terminal does not know.
std::size_t terminal_rows();

}  // namespace lumctl
