// What the terminal can do, and how large it is.
#pragma once

#include <cstddef>

namespace lumctl {

// What COLUMNS says, or the terminal of standard output; 0 where it is none: then nothing folds.
std::size_t columns_to_fold_to();

// Whether the descriptor is a terminal that understands colours and movements of the cursor; of one
// without a name, or that calls itself dumb, nobody knows.
bool is_steerable(int descriptor);

// The terminal of standard output as it is now; 120 by 24 where it does not know.
struct room {
  std::size_t columns = 0;
  std::size_t rows = 0;
};
room screen_size();

}  // namespace lumctl
