// Where events are told: in the journal with fields of their own where standard error is the
// journal, else as lines on standard error, and besides at the syslog receiver that the description
// names.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lum_linux/node_description.h"
#include "node/syslog_receiver.h"
#include "records/event.h"

namespace lumd {

// One event, or many that say the same of many ports.
struct told_event {
  event of;  // the first of many
  bool is_many;
  std::string text;  // the line for people, with the place that it is about
  std::string node;  // its name
};

// As the system log and the journal number them.
int priority_of(severity how_bad);

// What is known of the event for programs, by names in small letters with underscores: node, event,
// severity, number; where there are such port, sub_port, left_out and the event's details. Of many
// neither number nor port.
std::vector<std::pair<std::string, std::string>> facts_of(const told_event &one);

// One thread at a time. Waits for nobody longer than a moment.
class event_outlets {
 public:
  explicit event_outlets(const lum_linux::node_description &node);

  void tell(const told_event &one);

 private:
  bool is_journal_;
  std::optional<syslog_receiver> receiver_;
};

}  // namespace lumd
