// What must hold of a node whatever the order in which its threads run: looked at with every
// transfer, and when all is done.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "lum.h"
#include "scheduler.h"

namespace schedules {

struct place {
  uint32_t slot;
  uint32_t port;
  uint32_t rsip() const { return slot << 16 | port; }
  auto operator<=>(const place &) const = default;
};

class node_model {
 public:
  explicit node_model(scheduler &of) : scheduler_(of) {}

  // The life of a port, as its driver knows it.
  void creation_begun(place where);
  void creation_ended(place where);
  void deletion_begun(place where);
  bool is_created(place where) const { return ports_.contains(where) && ports_.at(where).created; }
  // Whether its deletion has taken the port out of the database, and with all that it left behind.
  bool has_left(place where) const { return gone_.contains(where.rsip()); }

  // A setting; returns its number, which is also what is set.
  uint32_t setting_begun(place where, uint32_t sub_port);
  void setting_ended(uint32_t number, cerrno rc);

  // Modules come and go in this schedule, that of the port among them.
  void module_moves(place where) { moving_.insert(where.rsip()); }

  void look_at_call(const std::string &thread, const std::string &text);
  void look_at_rest(const std::vector<place> &places);
  const std::vector<std::string> &findings() const { return findings_; }
  void found(const std::string &text) { findings_.push_back(text); }

 private:
  struct port_life {
    bool wanted = false;   // the latest call about it is a creation
    bool created = false;  // and it has come back
    uint64_t begun = 0;
    uint64_t usable = 0;  // from here on settings must take effect
  };
  struct setting {
    place where;
    uint32_t sub_port;
    uint64_t begun;
    uint64_t ended;  // 0: not yet
    cerrno rc;
  };
  struct visit {
    std::string thread;
    uint64_t since;
    auto operator<=>(const visit &) const = default;
  };
  struct module_visits {
    visit current;
    std::set<visit> over;
  };

  uint64_t now() { return ++clock_; }
  void look_at_transfer(const std::string &thread, uint32_t rsip, bool polls);
  void look_at_port(place where);
  void look_at_settings(place where, const lum_port_data &port, uint32_t sub_port);

  scheduler &scheduler_;
  uint64_t clock_ = 0;
  std::map<place, port_life> ports_;
  std::vector<setting> settings_;
  std::set<uint32_t> gone_;
  std::set<uint32_t> moving_;
  std::map<uint32_t, module_visits> visits_;
  bool poll_has_failed_ = false;
  std::vector<std::string> findings_;
};

}  // namespace schedules
