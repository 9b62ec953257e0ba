// Watches which cages have a module, and tells the library of modules that came or went: it takes
// every cage for filled until it is told otherwise. Knows too whose readings are worth showing.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>

#include "lum_linux/modules.h"
#include "lum_linux/node_description.h"
#include "node/port_data.h"

namespace lumd {

class cage_watch {
 public:
  // The watch must live until the process ends once it has looked.
  cage_watch(const lum_linux::node_description &node, lum_linux::modules &modules);

  // The library has just read the identity of the port's module and polls it from now on.
  void begin(uint32_t rsip);

  // Looks at every cage once. Waits a moment for modules that do not answer; what the library reads
  // of a module that has come or gone, it reads on a thread of its own. One thread at a time.
  void look();

  // The port's module is there and has been polled since it came.
  bool has_readings(uint32_t rsip) const;

 private:
  struct cage {
    bool present = true;
    uint64_t insertion = 0;
    uint64_t transfers_before_polling = 0;
    bool polled = false;
  };

  cage seen(uint32_t rsip) const;
  void look_at(const lum_linux::port_description &port);
  void tell_library(uint32_t rsip, bool has_gone, bool has_come);

  const lum_linux::node_description &node_;
  lum_linux::modules &modules_;
  mutable std::mutex mutex_;  // guards the cages, and is never held while waiting
  std::map<uint32_t, cage> cages_;
  lum_linux::lanes readers_;  // a lane for each port
};

}  // namespace lumd
