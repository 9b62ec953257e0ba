// Event manager and test events; handlers run when the test says so.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "ea_server.h"
#include "event_manager.h"
#include "spin.h"
#include "test_event.h"

namespace support {

inline constexpr event_manager client_manager = 0x45;  // the client's event manager

class event_stage {
 public:
  // Runs the handlers of all queued pulses, also of those that they send, on a thread of their own.
  // Returns how many.
  unsigned run_pulses();
  // Runs the handlers registered under the suite with the test's id.
  void send_test(const std::string &suite, uint32_t test_id, const char *text);
  // What the entity-agent server registered.
  ea_server_registration entity_agent = {};

 private:
  friend struct event_calls;
  struct handler {
    event_manager manager;
    event_async_handler run;
  };

  spin lock_;
  std::vector<handler> handlers_;
  std::vector<std::pair<uint32_t, uint64_t>> pulses_;
  std::map<std::string, std::vector<test_event_record>> suites_;
};

extern event_stage &events;

}  // namespace support
