// Create replies of any bytes, through the codec.
#include <cstdint>
#include <cstdlib>

#include "imca.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const wiredef_allocator allocator = {[](std::uint64_t bytes) { return std::malloc(bytes); },
                                       std::free};
  wiredef_icpe_ext_intf_create_reply_data decoded = {};
  if (wiredef_icpe_ext_intf_create_reply_data_decode_ext(data, static_cast<std::uint32_t>(size),
                                                         &decoded, &allocator) != 0) {
    return 0;
  }
  wiredef_icpe_ext_intf_create_reply_data_have_required(&decoded);
  wiredef_icpe_ext_intf_create_reply_data_free_ext(&decoded, &allocator);
  return 0;
}
