// Where a node's traces are, and which port is meant: by what the driver says, by a description, or
// by what was typed alone.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "command_line/command.h"

namespace lumctl {

// The service's description.
inline constexpr const char *usual_description = "/etc/lumd/node.toml";

struct trace_source {
  std::filesystem::path folder;
  std::optional<std::uint32_t> port;     // rsip
  std::vector<std::uint32_t> ifhandles;  // of the port, as far as the driver knows them
  std::string wrong;                     // why there is none of it, else empty
  int status = 0;                        // the exit status then
};

struct trace_wish {
  std::string port;       // a name, or rack/slot/instance/port; empty: all
  std::string directory;  // where the traces are; empty: where the driver or the description say
  std::string config;     // the description; empty: the driver is asked, or else the service's
};

trace_source find_traces(const session &now, const trace_wish &wanted);

}  // namespace lumctl
