#include "views/action_view.h"

#include <nlohmann/json.hpp>

#include "node/controller_actions.h"
#include "node/entity_agent.h"
#include "node/lifecycle.h"
#include "node/module_actions.h"
#include "node/settings.h"
#include "node/settings_look.h"
#include "views/configuration_view.h"
#include "views/store_view.h"

namespace lumd {
namespace {

json show_ports(const lifecycle_report &report) {
  json shown = json::array();
  for (const port_result &one : report.ports) {
    shown.push_back({{"name", one.port->name},
                     {"state", name_of(lum_words::port_states, one.state)},
                     {"ifhandles", one.ifhandles}});
  }
  return shown;
}

}  // namespace

json result_of(cerrno rc) {
  return {{"code", rc}, {"text", CERR_IS_OK(rc) ? "done" : cerr_strerror(rc)}};
}

void conclude(json &reply, bool complete, const std::string &reason) {
  reply["complete"] = complete;
  if (!complete) reply["reason"] = reason;
}

void conclude(json &reply, const action_report &report) {
  conclude(reply, report.missing.empty(), report.missing);
  if (report.pending) reply["pending"] = true;
}

json show_action(const action_report &report) {
  json shown = {{"result", result_of(report.rc)}};
  conclude(shown, report);
  return shown;
}

json show_lifecycle(const lifecycle_report &report) {
  json shown = {{"result", result_of(report.rc)}, {"ports", show_ports(report)}};
  conclude(shown, report);
  return shown;
}

json show_update(const update_report &report, const lum_linux::port_description &port,
                 uint32_t state) {
  json shown = {{"result", result_of(report.rc)}, {"name", port.name}, {"state", state}};
  shown["module_written"] = report.module_written ? json(*report.module_written) : json();
  conclude(shown, report);
  return shown;
}

json show_replay(const replay_report &report) {
  json shown = {{"result", result_of(report.rc)},
                {"controllers", report.controllers},
                {"confirmed", report.confirmed}};
  conclude(shown, report);
  return shown;
}

json show_clear(const clear_report &report) {
  json shown = {{"result", result_of(report.rc)}, {"cleared", report.controllers}};
  conclude(shown, report);
  return shown;
}

json show_settings_change(const settings_report &report, const lum_linux::port_description &port,
                          uint32_t sub_port) {
  const bool saved_are_known = saved_settings_are_known(lum_linux::checkpoints_status(), port.rsip);
  json shown = {{"result", result_of(report.rc)},
                {"name", port.name},
                {"sub_port", sub_port},
                {"ifhandle", report.ifhandle},
                {"change_bits", report.change_bits},
                {"module_written", report.module_written},
                {"changes", show_changes(report)},
                {"stored", show_configuration(report.stored, saved_are_known)}};
  conclude(shown, report);
  return shown;
}

json show_rehearsal(const settings_report &report, const lum_linux::port_description &port,
                    uint32_t sub_port) {
  const bool saved_are_known = saved_settings_are_known(lum_linux::checkpoints_status(), port.rsip);
  json shown = {{"result", result_of(report.rc)},
                {"name", port.name},
                {"sub_port", sub_port},
                {"dry_run", true},
                {"changes", show_changes(report)},
                {"stored", show_configuration(report.stored, saved_are_known)}};
  conclude(shown, report);
  return shown;
}

json show_plan(const deletion_plan &plan, const std::vector<settings_look> &looks) {
  json ports = json::array();
  json drops = json::array();
  json unknown = json::array();
  for (const auto *port : plan.ports) ports.push_back(port->name);
  for (const settings_look &at : looks) {
    for (json &one : show_dropped(at)) drops.push_back(std::move(one));
    if (at.saved.known) continue;
    unknown.push_back({{"port", at.port->name}, {"reason", at.saved.reason}});
  }
  json shown = {{"result", result_of(plan.rc)},
                {"dry_run", true},
                {"ports", std::move(ports)},
                {"drops", std::move(drops)},
                {"not_known", std::move(unknown)}};
  conclude(shown, plan);
  return shown;
}

json show_module_action(const module_report &report, const lum_linux::port_description &port) {
  json shown = {{"result", result_of(report.rc)}, {"name", port.name}};
  if (report.status) {
    shown["present"] = report.status->present;
    shown["pulled"] = report.status->pulled;
    shown["faults"] = to_string(report.status->faults);
  }
  conclude(shown, report);
  return shown;
}

json show_agent(const agent_report &report) {
  json shown = {
      {"result", result_of(report.rc)},
      {"resync",
       {{"replay_required", report.replay_required}, {"complete", report.resync_complete}}}};
  conclude(shown, report);
  return shown;
}

json show_agent_batch(const agent_report &report, const std::string &interface, uint32_t ifhandle) {
  json shown = show_agent(report);
  if (!interface.empty()) shown["interface"] = {{"name", interface}, {"ifhandle", ifhandle}};
  shown["served"] = report.served;
  return shown;
}

}  // namespace lumd
