#include <fmt/format.h>

#include <array>

#include "action.h"
#include "driver.h"
#include "find_port.h"
#include "imc.h"
#include "lum.h"
#include "lum_linux/services.h"
#include "request_body.h"
#include "routes.h"

namespace lumd {
namespace {

// Whatever waits in the library's answer to an agent waits for the provisioning lock at most.
constexpr std::chrono::seconds bound(5);

struct named_operation {
  std::string_view name;
  lum_linux::ea_operation operation;
};
constexpr std::array<named_operation, 4> interface_operations = {
    {{"create", lum_linux::ea_operation::create},
     {"update", lum_linux::ea_operation::update},
     {"get-info", lum_linux::ea_operation::get_info},
     {"delete", lum_linux::ea_operation::remove}}};

json show_resync() {
  const lum_ctx &context = *lum_get_ctx();
  return {
      {"replay_required", __atomic_load_n(&context.ea_replay_required_bitmap, __ATOMIC_RELAXED)},
      {"complete", __atomic_load_n(&context.is_resync_with_ea_complete, __ATOMIC_RELAXED) != 0}};
}

json conclusion(cerrno rc) {
  json reply = {{"result", result_of(rc)}, {"resync", show_resync()}};
  conclude(reply, CERR_IS_OK(rc), fmt::format("the library answered {}", rc));
  return reply;
}

api_reply run_batch(lum_linux::ea_operation operation, const lum_linux::ea_entry &entry) {
  std::vector<bool> served;
  const cerrno rc = lum_linux::ea_run(static_cast<uint32_t>(operation), {&entry, 1}, served);
  json reply = conclusion(rc);
  if (!entry.ifname.empty()) {
    reply["interface"] = {{"name", entry.ifname}, {"ifhandle", entry.ifhandle}};
  }
  reply["served"] = !served.empty() && served.front();
  return {200, std::move(reply)};
}

// The library ends the process over a name of a port that leaves the sub-port out.
void check_interface_name(const std::string &name, request_body &body) {
  if (name.size() >= LUM_IFNAME_SIZE) return body.complain("the interface's name is too long");
  imc_ifname_info info = {};
  if (imc_ifname_parse(name.c_str(), 0, &info) != 0 || info.sub_port_valid != 0) return;
  body.complain(
      fmt::format("the interface \"{}\" has no sub-port, expected a name such as "
                  "Ots0_1_0_3_1",
                  name.c_str()));
}

// The interface that the body means, by its name or as a port's sub-port; empty when it complains.
std::string read_interface(driver &node, request_body &body) {
  const auto name = body.optional_text("interface");
  const auto port_name = body.optional_text("port");
  const auto sub_port = body.optional_number("sub_port", 0, LUM_SUB_PORTS - 1);
  if (name && !port_name && !sub_port) {
    check_interface_name(*name, body);
    return *name;
  }
  if (name || !port_name || !sub_port) {
    body.complain("expected either \"interface\", or \"port\" and \"sub_port\"");
    return {};
  }
  const auto *port = find_port(node, *port_name);
  if (port == nullptr) {
    body.complain(fmt::format("the node has no port \"{}\"", *port_name));
    return {};
  }
  const uint32_t rsip = port->rsip;
  return fmt::format("Ots{}_{}_{}_{}_{}", rsip >> 24, rsip >> 16 & 0xFF, rsip >> 8 & 0xFF,
                     rsip & 0xFF, *sub_port);
}

api_reply post_interface(driver &node, const api_request &request) {
  const auto found = std::find_if(
      interface_operations.begin(), interface_operations.end(),
      [&](const named_operation &known) { return known.name == request.parameters[0]; });
  if (found == interface_operations.end()) {
    return refuse(404,
                  fmt::format("an entity agent has no operation \"{}\"", request.parameters[0]));
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
  return act(bound, [operation = found->operation, entry] { return run_batch(operation, entry); });
}

// The end of a resync is told of each entry of its batch; one is enough.
api_reply post_resync_end(driver &, const api_request &request) {
  const request_body body(request.body);
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(bound, [] { return run_batch(lum_linux::ea_operation::resync_end, {}); });
}

api_reply post_connect(driver &, const api_request &request) {
  const request_body body(request.body);
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(bound, [] { return api_reply{200, conclusion(lum_linux::ea_connect())}; });
}

constexpr route routes[] = {
    {"POST", "/v1/entity-agent/connect", post_connect},
    {"POST", "/v1/entity-agent/resync-end", post_resync_end},
    {"POST", "/v1/entity-agent/interfaces/{}", post_interface},
};

}  // namespace

std::span<const route> entity_agent_routes() { return routes; }

}  // namespace lumd
