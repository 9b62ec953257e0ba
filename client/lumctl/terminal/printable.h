// Text that a terminal can be trusted with, and the room that it takes there.
#pragma once

#include "base/printable.h"
#include "terminal/glyphs.h"

namespace lumctl {

using lum_client::printable;

}  // namespace lumctl
