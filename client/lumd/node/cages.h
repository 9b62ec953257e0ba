// Watches which cages have a module, and tells the library of modules that came or went: it takes
// every cage for filled until it is told otherwise.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "lum_linux/modules.h"
#include "lum_linux/node_description.h"
#include "node/port_data.h"

namespace lumd {

// A cage as it was looked into last.
struct cage {
  // Polls from then on are of the module that is there, and nothing has cleared what they stored.
  std::chrono::steady_clock::time_point begun{};
  uint64_t insertion = 0;   // of the module whose identity was asked for last
  bool being_read = false;  // the identity of a module that has just come
  // Not all of that could be read: which memory map the module has is not known either.
  bool incomplete = false;
  unsigned attempts = 0;          // to read it since the module came
  uint64_t failed_transfers = 0;  // of the module, before the latest of them
};

class cage_watch {
 public:
  // The watch must live until the process ends once it has looked.
  cage_watch(const lum_linux::node_description &node, lum_linux::modules &modules);

  // The library is about to read the identity of the port's module.
  void begin(uint32_t rsip);
  // It has read that, or has cleared what it had polled: what counts is polled from now on.
  void renew(uint32_t rsip);
  // It is about to clear what it has polled of every port: until renew_all() no poll counts.
  void forget_all();
  void renew_all();

  // Compares what is known of every cage with what the library takes it for; what the library reads
  // of a module that has come or gone, it reads on a thread of its own. Returns whether something
  // of that is under way. One thread at a time. `node` has the ports' names as they are now.
  bool compare(const lum_linux::node_description &node, const std::vector<port_words> &words);

  cage seen(uint32_t rsip) const;
  // Of that, from when on polls count.
  std::chrono::steady_clock::time_point begun(uint32_t rsip) const;

 private:
  bool look_at(const lum_linux::port_description &port, const port_words &words);
  void tell_way(const lum_linux::port_description &port, std::string_view way);
  void tell_library(uint32_t rsip, bool has_gone, bool to_be_read);

  lum_linux::modules &modules_;
  mutable std::mutex mutex_;  // guards the cages, and is never held while waiting
  std::map<uint32_t, cage> cages_;
  std::map<uint32_t, std::string_view> ways_;  // told last; of the one thread that looks
  mutable lum_linux::lanes readers_;           // a lane for each port
};

}  // namespace lumd
