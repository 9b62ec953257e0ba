#include <cstring>
#include <map>
#include <string>

#include "driver.h"
#include "lum.h"
#include "port_data.h"
#include "routes.h"

namespace lumd {
namespace {

// What the library takes for the controllers: name and interface handle of those it has confirmed.
std::map<std::string, uint32_t> known_to_the_library() {
  std::map<std::string, uint32_t> known;
  for (const auto &[rsip, port] : copy_ports()) {
    for (const lum_sub_port_intf &controller : port.data.sub_port) {
      if (controller.created == 0) continue;
      known[std::string(controller.ifname, strnlen(controller.ifname, LUM_IFNAME_SIZE))] =
          controller.ifhandle;
    }
  }
  return known;
}

// The interface manager's controllers, then those that only the library believes in.
json show_controllers(driver &node) {
  auto known = known_to_the_library();
  json controllers = json::array();
  for (const auto &controller : node.platform().im().controllers()) {
    json shown = {{"name", controller.name},     {"ifhandle", controller.handle},
                  {"state", controller.state},   {"updates", controller.updates},
                  {"library_ifhandle", nullptr}, {"agrees", false}};
    if (const auto own = known.extract(controller.name)) {
      shown["library_ifhandle"] = own.mapped();
      shown["agrees"] = own.mapped() == controller.handle;
    }
    controllers.push_back(std::move(shown));
  }
  for (const auto &[name, ifhandle] : known) {
    controllers.push_back({{"name", name},
                           {"ifhandle", nullptr},
                           {"state", nullptr},
                           {"updates", nullptr},
                           {"library_ifhandle", ifhandle},
                           {"agrees", false}});
  }
  return controllers;
}

api_reply get_controllers(driver &node, const api_request &) {
  const auto statistics = node.platform().im().statistics();
  return {
      200,
      {{"controllers", show_controllers(node)},
       {"batches",
        {{"create", statistics.create_batches},
         {"delete", statistics.delete_batches},
         {"update", statistics.update_batches},
         {"refused", statistics.refused},
         {"answered", statistics.answered},
         {"dropped", statistics.dropped},
         {"pending", statistics.pending}}},
       {"elements", {{"accepted", statistics.elements}, {"failed", statistics.failed_elements}}},
       {"restarts", statistics.restarts}}};
}

constexpr route routes[] = {
    {"GET", "/v1/controllers", get_controllers},
};

}  // namespace

std::span<const route> controller_routes() { return routes; }

}  // namespace lumd
