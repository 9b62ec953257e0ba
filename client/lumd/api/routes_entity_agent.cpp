// What an entity agent does to the library.
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "api/action.h"
#include "api/request_body.h"
#include "api/routes.h"
#include "lum.h"
#include "node/driver.h"
#include "node/entity_agent.h"
#include "node/find_port.h"
#include "node/interface_names.h"
#include "views/action_view.h"
#include "wording/nearest.h"
#include "words/names.h"

namespace lumd {
namespace {

// Whatever waits in the library's answer to an agent waits for the provisioning lock at most.
constexpr std::chrono::seconds agent_bound(5);

struct named_operation {
  std::string_view name;
  lum_linux::ea_operation operation;
};
constexpr std::array<named_operation, 4> interface_operations = {
    {{"create", lum_linux::ea_operation::create},
     {"update", lum_linux::ea_operation::update},
     {"get-info", lum_linux::ea_operation::get_info},
     {"delete", lum_linux::ea_operation::remove}}};

api_reply run(lum_linux::ea_operation operation, const lum_linux::ea_entry &entry) {
  return {200, show_agent_batch(run_agent_batch(operation, entry), entry.ifname, entry.ifhandle)};
}

// The interface that the body means, by its name or as a port's sub-port; empty when it complains.
std::string read_interface(driver &node, request_body &body) {
  const auto name = body.optional_text("interface");
  const auto port_name = body.optional_text("port");
  const auto sub_port = body.optional_number("sub_port", 0, LUM_SUB_PORTS - 1);
  if (name && !port_name && !sub_port) {
    if (auto reason = reason_against_interface(*name); !reason.empty()) {
      body.complain(std::move(reason));
    }
    return *name;
  }
  if (name || !port_name || !sub_port) {
    body.complain("expected either \"interface\", or \"port\" and \"sub_port\"");
    return {};
  }
  const auto *port = find_port(node.node(), *port_name);
  if (port == nullptr) {
    body.complain(reason_against_port(node.node(), *port_name).reason);
    return {};
  }
  return interface_name({port->rsip, *sub_port});
}

api_reply post_interface(driver &node, const api_request &request) {
  const auto found = std::find_if(
      interface_operations.begin(), interface_operations.end(),
      [&](const named_operation &known) { return known.name == request.parameters[0]; });
  if (found == interface_operations.end()) {
    const auto names = lum_words::names_of(interface_operations);
    return refuse(404, fmt::format("an entity agent has no operation \"{}\", expected one of {}{}",
                                   request.parameters[0], fmt::join(names, ", "),
                                   lum_wording::did_you_mean(request.parameters[0], names)));
  }
  request_body body(request.body);
  lum_linux::ea_entry entry;
  entry.ifname = read_interface(node, body);
  const auto ifhandle = body.optional_number("ifhandle", 1, UINT32_MAX);
  entry.admin = static_cast<uint8_t>(body.optional_number("admin", 0, 255).value_or(1));
  entry.state_ready = static_cast<uint8_t>(body.optional_number("state_ready", 0, 255).value_or(1));
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  const auto known = node.platform().im().handle_of(entry.ifname);
  if (!ifhandle && !known) {
    return refuse(404, fmt::format("the interface manager does not know {}; its handle must be "
                                   "given",
                                   entry.ifname));
  }
  entry.ifhandle = ifhandle ? *ifhandle : *known;
  return act(node, agent_lane, agent_bound,
             [operation = found->operation, entry] { return run(operation, entry); });
}

// The end of a resync is told of each entry of its batch; one is enough.
api_reply post_resync_end(driver &node, const api_request &request) {
  const request_body body(request.body);
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(node, agent_lane, agent_bound,
             [] { return run(lum_linux::ea_operation::resync_end, {}); });
}

api_reply post_connect(driver &node, const api_request &request) {
  const request_body body(request.body);
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(node, agent_lane, agent_bound, [] {
    return api_reply{200, show_agent(connect_agent())};
  });
}

}  // namespace

std::span<const route> entity_agent_routes() {
  static constexpr route routes[] = {
      {"POST", "/v1/entity-agent/connect", post_connect},
      {"POST", "/v1/entity-agent/resync-end", post_resync_end},
      {"POST", "/v1/entity-agent/interfaces/{operation}", post_interface},
  };
  return routes;
}

}  // namespace lumd
