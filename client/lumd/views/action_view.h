// What was done, as its reports are shown. Each has "result", what the library or the platform
// answered; "complete", whether everything asked for has come about; and, if it has not, the
// "reason".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lum_linux/node_description.h"
#include "node/outcome.h"
#include "views/json.h"

namespace lumd {

struct agent_report;
struct clear_report;
struct deletion_plan;
struct lifecycle_report;
struct module_report;
struct replay_report;
struct settings_look;
struct settings_report;
struct update_report;

json result_of(cerrno rc);

// Adds what comes last.
void conclude(json &reply, bool complete, const std::string &reason);
void conclude(json &reply, const action_report &report);

// What has nothing else to tell.
json show_action(const action_report &report);

json show_lifecycle(const lifecycle_report &report);
json show_update(const update_report &report, const lum_linux::port_description &port,
                 uint32_t state);
json show_replay(const replay_report &report);
json show_clear(const clear_report &report);
json show_settings_change(const settings_report &report, const lum_linux::port_description &port,
                          uint32_t sub_port);
// Of a change that was only to be looked at: "stored" is as it stays.
json show_rehearsal(const settings_report &report, const lum_linux::port_description &port,
                    uint32_t sub_port);
// Of a deletion likewise, with the settings that it would drop: `looks` are at its ports'.
json show_plan(const deletion_plan &plan, const std::vector<settings_look> &looks);
json show_module_action(const module_report &report, const lum_linux::port_description &port);

// A connection of an agent, and a batch; of a batch also what it was about, when that has a name.
json show_agent(const agent_report &report);
json show_agent_batch(const agent_report &report, const std::string &interface, uint32_t ifhandle);

}  // namespace lumd
