// Where the API is to be had.
#pragma once

#include <memory>
#include <string>

#include "api/http_server.h"
#include "lum_linux/node_description.h"

namespace lumd {

// Opens the API that the node describes. A socket that nobody has chosen, which stands in the state
// directory, needs not keep the driver from running where that takes none: it is made in the
// service's runtime directory then, or in /run/lumd; or else the TCP port serves alone. What has
// become of it is said. Returns null with `error` when there is no API to be had.
std::unique_ptr<http_server> open_api(const lum_linux::node_description &node, std::string &error);

}  // namespace lumd
