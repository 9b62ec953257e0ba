#include "node_model.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "callbacks.h"
#include "checkpoints.h"
#include "interface_manager.h"
#include "library.h"
#include "lum_ports_db/node_keeper.h"
#include "lum_utils/lum_utils.h"
#include "module_bays.h"
#include "performance.h"

using support::checkpoints;

namespace schedules {
namespace {

constexpr uint32_t threshold_distance = 100;
constexpr uint32_t unit = 10;  // of settings, in the module's

// Where the module has a sub-port's settings, on page 2.
struct setting_places {
  uint32_t upper, lower, p2_setting;
};
constexpr setting_places places_of[LUM_SUB_PORTS] = {{144, 146, 194}, {152, 154, 178}};

std::string named(uint32_t rsip) {
  return "port " + std::to_string(rsip >> 16) + "/" + std::to_string(rsip & 0xFF);
}

}  // namespace

void node_model::creation_begun(place where) {
  ports_[where] = {true, false, now(), 0};
  gone_.erase(where.rsip());
}

void node_model::creation_ended(place where) {
  ports_[where].created = true;
  ports_[where].usable = now();
}

void node_model::deletion_begun(place where) { ports_[where] = {false, false, now(), 0}; }

uint32_t node_model::setting_begun(place where, uint32_t sub_port) {
  settings_.push_back({where, sub_port, now(), 0, 0});
  return static_cast<uint32_t>(settings_.size());
}

void node_model::setting_ended(uint32_t number, cerrno rc) {
  settings_[number - 1].ended = now();
  settings_[number - 1].rc = rc;
}

void node_model::look_at_call(const std::string &thread, const std::string &text) {
  uint32_t slot = 0, instance = 0, port = 0, page = 0, offset = 0, last = 0;
  if (std::sscanf(text.c_str(), "i2c_write_byte(%u, %u, %u, ", &slot, &instance, &port) == 3) {
    return look_at_transfer(thread, place{slot, port}.rsip(), false);
  }
  if (std::sscanf(text.c_str(), "i2c_read_block(%u, %u, %u, %u, %u, %u)", &slot, &instance, &port,
                  &page, &offset, &last) == 6) {
    // The identity of a module is read whoever has it.
    const bool polls = (page == 0 && offset == 0) || last == 23;
    if (polls || last == 2) look_at_transfer(thread, place{slot, port}.rsip(), polls);
    return;
  }
  if (text.find("module access failed") != std::string::npos) poll_has_failed_ = true;
  uint32_t rsip = 0;
  const auto at = text.find("ports DB delete done, rsip ");
  if (at != std::string::npos && std::sscanf(text.c_str() + at + 27, "%x", &rsip) == 1) {
    gone_.insert(rsip);
  }
}

// One that holds the port's mutex is let finish with the module: after another has used it, it does
// not come back to it. Polls are made without the mutex after a transfer that failed.
void node_model::look_at_transfer(const std::string &thread, uint32_t rsip, bool polls) {
  const scheduler::holding held = scheduler_.held();
  if (held.mutexes == 0) {
    if (!polls || !poll_has_failed_) {
      found(named(rsip) + (polls ? " is polled" : " is set") + " by a thread without a mutex");
    }
    return;
  }
  module_visits &visits = visits_[rsip];
  const visit one{thread, held.since};
  if (visits.current == one) return;
  if (visits.over.contains(one)) found(named(rsip) + ": " + thread + " was interrupted");
  visits.over.insert(visits.current);
  visits.current = one;
}

void node_model::look_at_rest(const std::vector<place> &places) {
  for (const place &where : places) look_at_port(where);
  if (scheduler_.is_held(&lum_platform.mutex)) found("the database mutex is still held");
  if (scheduler_.is_held(&prov_lock)) found("prov_lock is still held");
  if (lum_prov_pulse_sent != 0 || lum_pending_provisioning != 0) found("a pulse is lost");
  { lum::ports_reader reader; }
  const lum::keeper_counts nodes = lum::node_keeper_counts();
  if (nodes.retired != nodes.freed) found("a removed node is not freed");
}

void node_model::look_at_port(place where) {
  const uint32_t rsip = where.rsip();
  const lum_port_node_info *node = lum_get_port_node_from_rsip(rsip);
  const bool wanted = ports_.contains(where) && ports_[where].wanted;
  if ((node != nullptr) != wanted) {
    return found(named(rsip) + (wanted ? " is lost" : " is not deleted"));
  }
  if (checkpoints.has(rsip) != wanted) {
    found(named(rsip) + (wanted ? " has no record" : " has left its record behind"));
  }
  if (!wanted) return;
  const uint32_t handle = support::handle_for(rsip);
  if (node->port_handle != handle || lum_get_port_node_from_port_handle(handle) != node) {
    found(named(rsip) + " has not its port handle");
  }
  if (lum_plat_get_port_handle(where.slot, 0, static_cast<uint16_t>(where.port)) != handle) {
    found(named(rsip) + " is not in the slot table");
  }
  const lum_port_data &port = node->data;
  if (scheduler_.is_held(&port.port_mutex)) found(named(rsip) + ": its mutex is still held");
  if (port.led_state != support::client.led(rsip)) found(named(rsip) + " shows another LED");
  for (uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
    const uint32_t ifhandle = support::im.handle_of(port.sub_port[s].ifname);
    if (port.sub_port[s].created != 1) found(named(rsip) + " has a controller not created");
    if (port.sub_port[s].ifhandle != ifhandle) found(named(rsip) + " has a wrong handle");
    if (!support::performance.pm.contains(ifhandle)) found(named(rsip) + " has no PM port");
    look_at_settings(where, port, s);
    for (const uint16_t reading : port.dom[s].readings) {
      if (reading != 0x1111 && !moving_.contains(rsip)) {
        return found(named(rsip) + " is not polled");
      }
    }
  }
}

// What was set and not set again since is in force, kept and in the module.
void node_model::look_at_settings(place where, const lum_port_data &port, uint32_t sub_port) {
  const uint64_t usable = ports_[where].usable;
  uint64_t latest = 0;
  for (const setting &each : settings_) {
    const bool counts = each.where == where && each.sub_port == sub_port && each.rc == 0;
    if (counts && each.begun > usable) latest = std::max(latest, each.begun);
  }
  if (latest == 0) return;
  const uint32_t value = port.port_cfg[sub_port].p2_setting;
  const bool known = value >= 1 && value <= settings_.size();
  if (!known || settings_[value - 1].where != where || settings_[value - 1].ended < latest) {
    found(named(where.rsip()) + " has lost a setting for " + std::to_string(value));
  }
  const lum_chkpt_record kept = checkpoints.record(where.rsip());
  if (std::memcmp(&kept.port_cfg[sub_port], &port.port_cfg[sub_port], sizeof(lum_port_cfg)) != 0) {
    found(named(where.rsip()) + ": what is kept is not what was set");
  }
  if (moving_.contains(where.rsip())) return;
  support::module_memory &module = support::modules.at(where.slot, 0, where.port);
  const setting_places &at = places_of[sub_port];
  const uint32_t lower = module.be16_at(2, at.lower);
  if (module.be16_at(2, at.p2_setting) != value * unit || lower != value * unit ||
      module.be16_at(2, at.upper) != lower + threshold_distance) {
    found(named(where.rsip()) + ": the module has not what was set");
  }
}

}  // namespace schedules
