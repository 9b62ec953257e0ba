#include <fmt/format.h>

#include "action.h"
#include "alarm_view.h"
#include "alarms.h"
#include "driver.h"
#include "find_port.h"
#include "lum.h"
#include "pm_view.h"
#include "request_body.h"
#include "routes.h"
#include "times.h"

namespace lumd {
namespace {

constexpr int polling_period_s = 5;

// The port that the request names, or every port. Refuses one that the node does not have.
api_reply wanted_ports(driver &node, const std::optional<std::string> &name,
                       std::vector<const lum_linux::port_description *> &ports) {
  if (!name) {
    ports = node.node().ports();
    return {};
  }
  const auto *port = find_port(node, *name);
  if (port == nullptr) return refuse_unknown_port(*name);
  ports = {port};
  return {};
}

std::optional<std::string> queried(const api_request &request, const std::string &key) {
  const auto found = request.query.find(key);
  return found == request.query.end() ? std::nullopt : std::optional(found->second);
}

// Calls `look` with each port, its copy and sub-port that the library knows.
template <typename Look>
void each_sub_port(const std::vector<const lum_linux::port_description *> &ports,
                   const Look &look) {
  const auto copies = copy_ports();
  for (const auto *port : ports) {
    const auto copy = copies.find(port->rsip);
    if (copy == copies.end()) continue;
    for (std::size_t i = 0; i < LUM_SUB_PORTS; ++i) look(*port, copy->second, i);
  }
}

api_reply get_pm(driver &node, const api_request &request) {
  std::optional<pm_bins> bins;
  if (const auto asked = queried(request, "bins")) {
    bins = pm_bins_of(*asked);
    if (!bins) return refuse(400, "the bins are neither 15min nor 24h");
  }
  std::vector<const lum_linux::port_description *> ports;
  const api_reply refused = wanted_ports(node, queried(request, "port"), ports);
  if (refused.status != 200) return refused;
  json interfaces = json::array();
  each_sub_port(ports, [&](const auto &port, const port_copy &copy, std::size_t sub_port) {
    const auto pm = lum_linux::pm_find(copy.data.sub_port[sub_port].ifhandle);
    if (!pm) return;
    json shown = {{"port", port.name},
                  {"sub_port", sub_port},
                  {"ifname", pm->name},
                  {"ifhandle", pm->ifhandle}};
    if (pm->latest) shown["age_s"] = seconds_since(pm->updated);
    shown["bins"] = show_pm(*pm, bins);
    interfaces.push_back(std::move(shown));
  });
  return {200, {{"interfaces", std::move(interfaces)}}};
}

json show_kinds() {
  json kinds = json::array();
  for (const alarm_kind &kind : alarm_kinds()) {
    kinds.push_back({{"name", kind.name},
                     {"bit", kind.bit},
                     {"test_id", kind.test_id},
                     {"sub_port_1_only", kind.sub_port_1_only},
                     {"source", kind.source}});
  }
  return kinds;
}

// Those with an alarm, or all that the alarm service knows with ?all=true.
api_reply get_alarms(driver &node, const api_request &request) {
  const bool all = queried(request, "all").value_or("false") == "true";
  json interfaces = json::array();
  std::size_t known = 0;
  each_sub_port(node.node().ports(),
                [&](const auto &port, const port_copy &copy, std::size_t sub_port) {
                  json shown = show_alarms(port, copy, sub_port);
                  if (shown.is_null()) return;
                  ++known;
                  if (all || shown["bitmap"] != 0) interfaces.push_back(std::move(shown));
                });
  return {200, {{"interfaces", std::move(interfaces)}, {"known", known}, {"kinds", show_kinds()}}};
}

json show_cycle(const polling_cycle &cycle) {
  json shown = {{"duration_s", seconds_of(cycle.ended - cycle.started)}, {"ports", cycle.ports}};
  if (cycle.lateness) shown["lateness_s"] = seconds_of(*cycle.lateness);
  return shown;
}

api_reply get_polling(driver &node, const api_request &) {
  const polling_report report = node.polling().report();
  json shown = {{"cycles", report.cycles},
                {"running", report.running},
                {"paused", report.paused},
                {"period_s", polling_period_s},
                {"last", nullptr}};
  if (report.last) {
    shown["last"] = show_cycle(*report.last);
    shown["last"]["age_s"] = seconds_of(std::chrono::steady_clock::now() - report.last->ended);
  }
  return {200, std::move(shown)};
}

api_reply post_clear(driver &node, const api_request &request) {
  request_body body(request.body);
  const auto name = body.optional_text("port");
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  std::vector<const lum_linux::port_description *> ports;
  if (const api_reply refused = wanted_ports(node, name, ports); refused.status != 200) {
    return refused;
  }
  std::vector<uint32_t> ifhandles;
  each_sub_port(ports, [&](const auto &, const port_copy &copy, std::size_t sub_port) {
    const lum_sub_port_intf &controller = copy.data.sub_port[sub_port];
    if (controller.created != 0) ifhandles.push_back(controller.ifhandle);
  });
  if (ifhandles.empty()) return refuse(409, "there is no controller whose statistics to clear");
  const cerrno rc = lum_lib_clear_stats(static_cast<int32_t>(ifhandles.size()), ifhandles.data());
  json reply = {{"result", result_of(rc)}, {"cleared", ifhandles.size()}};
  conclude(reply, CERR_IS_OK(rc), "the last controller's statistics could not be cleared");
  return {200, std::move(reply)};
}

constexpr route routes[] = {
    {"GET", "/v1/pm", get_pm},
    {"GET", "/v1/alarms", get_alarms},
    {"GET", "/v1/polling", get_polling},
    {"POST", "/v1/statistics/clear", post_clear},
};

}  // namespace

std::span<const route> monitoring_routes() { return routes; }

}  // namespace lumd
