// What spares a peer an answer that it has already.
#pragma once

#include <string>

namespace lumd {

struct http_reply;

// Gives a good answer the tag of its bytes and, where the peer's If-None-Match has that tag, leaves
// these out.
void spare_what_is_known(const std::string &if_none_match, http_reply &reply);

}  // namespace lumd
