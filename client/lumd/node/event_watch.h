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

  // Compares the node with what it was at the last look, and tells what has come in since then. A
  // node whose outline is as it was is compared every five seconds only.
  void look();

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
    lum_linux::im_statistics manager;
    uint64_t cycles = 0;
    uint64_t handed_on = 0;
    bool paused = false;
    bool led_trouble = false;

    bool operator==(const outline &) const = default;
  };

  outline outline_now();
  bool is_at_rest(const outline &now) const;
  void compare();
  void see_module(const lum_linux::port_description &port, const port_snapshot &at,
                  known_port &known);
  void see_state(const lum_linux::port_description &port, const port_snapshot &at,
                 known_port &known);
  void see_alarms(const lum_linux::port_description &port, const port_snapshot &at,
                  known_port &known);
  void see_findings(const std::vector<finding> &found);
  void see_interface_manager();
  void see_polling();
  void see_settled(const std::map<uint32_t, port_snapshot> &snapshots);
  void tell();

  driver &node_;
  event_log &events_;
  outline outline_;  // before the node was compared last
  std::optional<std::chrono::steady_clock::time_point> compared_at_;
  event_outlets outlets_;
  std::map<uint32_t, known_port> ports_;     // by rsip
  std::map<std::string, finding> findings_;  // by kind, port and place among those
  lum_linux::im_statistics manager_;
  std::chrono::steady_clock::time_point answered_at_ = std::chrono::steady_clock::now();
  bool unanswered_ = false;
  uint64_t late_cycles_ = 0;  // the number of the last that was told of
  bool settled_ = false;
};

}  // namespace lumd
