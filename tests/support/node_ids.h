// How the platform numbers its slots and instances.
#pragma once

#include <cstdint>

namespace support {

// Added to the parser's fields by the platform's node identifiers.
struct node_id_rules {
  uint32_t rack_bias = 0;
  uint32_t slot_bias = 0;
  uint32_t instance_bias = 0;
};
extern node_id_rules &node_ids;

}  // namespace support
