// Whether a request means this node: a page from elsewhere whose name leads here does not.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lumd {

// The host of a request's Host, in small letters, without its port and brackets; empty where the
// field is, and nothing where it is none.
std::optional<std::string> host_in(const std::string &field);

// Whether `host` is localhost, a loopback address, `address`, by which the request has come in, or
// one of `names`, which are in small letters. Without a host there is no browser behind it.
bool is_own_host(const std::string &host, const std::string &address,
                 const std::vector<std::string> &names);

}  // namespace lumd
