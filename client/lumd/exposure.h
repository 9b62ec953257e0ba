// How far the API can be reached, as a description has it, and what there is to be said of that.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/tls_context.h"
#include "lum_linux/node_description.h"

namespace lumd {

// Whether others than this machine may reach the HTTP port.
bool is_open_to_others(const lum_linux::node_description &node);

// What the HTTP port speaks TLS with; null where it speaks none, or with `error` saying why not.
std::shared_ptr<const lum_client::tls_context> tls_of(const lum_linux::node_description &node,
                                                      std::string &error);

// Whose members may look through the socket; nothing where nobody may, or with `error` saying why
// not.
std::optional<gid_t> group_of(const lum_linux::node_description &node, std::string &error);

// What is right and yet worth a second thought; empty where nothing is.
std::vector<std::string> risks_of(const lum_linux::node_description &node);

}  // namespace lumd
