// Whether a request means this node: a page from elsewhere whose name leads here does not.
#pragma once

#include <string>
#include <vector>

namespace lumd {

// `field` is a request's Host, with or without a port: localhost, a loopback address, or one of
// `names`, which are in small letters. Without a Host there is no browser behind it.
bool is_own_host(const std::string &field, const std::vector<std::string> &names);

}  // namespace lumd
