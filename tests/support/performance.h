// PM and PTAH stores in memory.
#pragma once

#include <cstdint>
#include <map>

#include "pm_ui.h"
#include "ptah.h"

namespace support {

struct performance_stores {
  std::map<uint32_t, pm_ui_optics_record> pm;  // by interface handle: the ports that exist
  std::map<uint32_t, ptah_al_all> ptah;
};

// Written by the thread that runs the library's calls.
extern performance_stores &performance;

}  // namespace support
