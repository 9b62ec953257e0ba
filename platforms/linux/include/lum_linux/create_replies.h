// The writing half of the create-reply codec, whose reading half is in imca.h.
//
// What holds for every call stands in lum_linux/services.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lum_linux {

struct create_reply {
  std::optional<uint32_t> ifhandle;        // required by the reader; absent: left out
  std::optional<std::string> description;  // up to 1,024 bytes without a NUL; longer is cut
  bool truncated = false;                  // leave the last byte out
};
// Encodes a reply as wiredef_icpe_ext_intf_create_reply_data_decode_ext reads it. May throw
// std::bad_alloc.
std::vector<uint8_t> encode_create_reply(const create_reply &reply);

}  // namespace lum_linux
