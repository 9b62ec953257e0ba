// The clock that the performance-monitoring and alarm stores share.
#pragma once

#include "lum_linux/store_time.h"

namespace lum_linux {

store_stamp store_stamp_now();

}  // namespace lum_linux
