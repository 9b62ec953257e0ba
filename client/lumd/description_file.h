// The node's description in its file: read, judged, and compared with what a driver runs with.
#pragma once

#include <optional>
#include <string>

#include "lum_linux/node_description.h"

namespace lumd {

class driver;
class http_server;

// Reads and checks the description, with those of its simulated modules and the files of TLS, and
// warns of what is most likely not meant. Nothing when anything is wrong; everything that is has
// been said.
std::optional<lum_linux::node_description> read_description(const std::string &file);

// Says on standard output what a restart would change of the driver that answers on the
// description's socket, or that none does.
void compare_with_running(const lum_linux::node_description &node, const std::string &socket);

// Reads the description again and takes over what can be without a restart; says what was and what
// needs one. A wrong one changes nothing.
void reload_description(driver &node, http_server &server, const std::string &file);

}  // namespace lumd
