// Sees what changes on the node, and tells of it: in the log of events and, each event once, at its
// outlets.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lum_linux/interface_manager.h"
#include "node/event_outlets.h"
#include "node/findings.h"
#include "node/port_snapshot.h"
#include "records/event_log.h"

namespace lumd {

class driver;

// One thread at a time.
class event_watch {
 public:
  // Both must live as long as the watch.
  event_watch(driver &node, event_log &events);

  // Compares the node with what it was at the last look, and tells what has come in since then.
  // What is not a port's own is compared each time; the ports of a node whose outline is as it was,
  // each minute, and each cycle for some cycles behind a change. `words` are the ports' as they are
  // now. Returns whether something is under way, so that the next look is wanted within a second.
  bool look(const std::vector<port_words> &words);

  // Tells what has come in, and all that has been held back because it came too fast.
  void tell_the_rest();

 private:
  struct known_port {
    std::optional<port_state> state;  // the last that was neither coming up nor going
    std::optional<bool> filled;       // its cage
    uint64_t insertion = 0;
    std::string module;  // what was in it last
    uint64_t alarms[LUM_SUB_PORTS] = {};
  };

  // What changes first when anything does that is to be told at once.
  struct outline {
    std::vector<port_facts> ports;
    std::vector<lum_linux::module_glimpse> modules;  // of the description's ports
    std::vector<uint32_t> upgrades;
    std::vector<uint64_t> alarms;  // of the ports' controllers, as stored
    lum_linux::im_statistics manager;
    bool halted = false;  // the library's count keeps it from polling
    bool paused = false;
    bool led_trouble = false;

    bool operator==(const outline &) const = default;
  };

  void gather(const std::vector<port_words> &words, outline &now) const;
  bool is_under_way(const outline &now) const;
  bool is_to_be_compared();
  void compare_ports();
  void see_module(const lum_linux::port_description &port, const port_snapshot &at,
                  known_port &known);
  void see_state(const lum_linux::port_description &port, const port_snapshot &at,
                 known_port &known);
  void see_alarms(const lum_linux::port_description &port, const port_snapshot &at,
                  known_port &known);
  void see_findings(const std::vector<finding> &found, std::map<std::string, finding> &known);
  void see_interface_manager();
  void see_polling();
  void see_settled(const std::map<uint32_t, port_snapshot> &snapshots);
  void tell();

  driver &node_;
  event_log &events_;
  outline outline_;                                                   // at the last look
  outline now_;                                                       // and at this one
  std::optional<std::chrono::steady_clock::time_point> compared_at_;  // the ports
  uint64_t compared_in_ = 0;                                          // with so many cycles ended
  uint64_t handed_on_ = 0;                                            // and so much handed on
  uint64_t changed_in_ = 0;  // cycles ended when the outline was another last
  event_outlets outlets_;
  std::map<uint32_t, known_port> ports_;     // by rsip
  std::map<std::string, finding> findings_;  // of ports, by kind, port and place among those
  std::map<std::string, finding> others_;    // and of the rest
  lum_linux::im_statistics manager_;
  std::chrono::steady_clock::time_point answered_at_ = std::chrono::steady_clock::now();
  bool unanswered_ = false;
  uint64_t late_cycles_ = 0;  // the number of the last that was told of
  bool settled_ = false;
};

}  // namespace lumd
