// What the terminal can do, and how large it is.
#pragma once

#include <cstddef>

namespace lumctl {

// What COLUMNS says, or the terminal; 120 where neither knows.
std::size_t terminal_columns();

// Whether the descriptor is a terminal that understands colours and movements of the cursor; of one
// without a name, or that calls itself dumb, nobody knows.
bool is_steerable(int descriptor);

// 24 where the terminal does not know.
std::size_t terminal_rows();

}  // namespace lumctl
