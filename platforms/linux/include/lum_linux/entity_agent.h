// The entity agent's side of ea_server.h.
//
// What holds for every call stands in lum_linux/services.h.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cerr.h"
#include "event_manager.h"

namespace lum_linux {

enum class ea_operation : uint32_t { resync_end, create, update, get_info, remove };

struct ea_entry {
  std::string ifname;  // up to 63 bytes without a NUL
  uint32_t ifhandle = 0;
  uint8_t admin = 0;
  uint8_t state_ready = 0;
};

// Hands a batch to the registered server, on the calling thread; one at a time. `operation` may be
// a number that ea_operation does not name. `served` receives whether the reply entry of each
// request entry was set. Returns 0, 107 when no server is registered, 22 for more than 4,096
// entries, a name that does not fit or one of a port without its sub-port (Ots0_1_0_3, over which
// the library would end the process), 35 when called from the server, or 12.
cerrno ea_run(uint32_t operation, std::span<const ea_entry> entries, std::vector<bool> &served);

// Tells the server that an entity agent has connected. Returns its code, 107 or 35.
cerrno ea_connect();

struct ea_registration {
  std::string name;
  event_manager manager = 0;
  int32_t restart = 0;
};
std::optional<ea_registration> ea_registered();

// Forgets the server. Waits for a batch that is running, but not when called from it.
void ea_unregister();

}  // namespace lum_linux
