// The comparators that the library gave wavl_init, by index.
#pragma once

#include "wavl.h"

namespace support {

extern wavl_comparator tree_comparators[2];

}  // namespace support
