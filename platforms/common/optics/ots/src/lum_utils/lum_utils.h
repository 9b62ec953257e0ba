// Names that traces print.
#pragma once

#include <cstdint>

namespace lum {

// Name of an entity-agent operation type (0 to 4); null for any other.
const char *ea_operation_name(std::uint32_t operation);

}  // namespace lum
