// What is done to a port's module from outside.
#include <filesystem>
#include <functional>

#include "api/action.h"
#include "api/request_body.h"
#include "api/routes.h"
#include "node/driver.h"
#include "node/find_port.h"
#include "node/module_actions.h"
#include "views/action_view.h"

namespace lumd {
namespace {

using lum_linux::port_description;

constexpr std::chrono::seconds module_bound(5);

using module_action = std::function<outcome<module_report>(driver &, const port_description &)>;

// Reads what belongs to the path and lets `read` read the rest and say what to do.
api_reply post(driver &node, const api_request &request, action_lane (*lane_of)(uint32_t),
               const std::function<module_action(request_body &)> &read) {
  const auto *port = find_port(node.node(), request.parameters[0]);
  if (port == nullptr) return refuse_port(node.node(), request.parameters[0]);
  request_body body(request.body);
  module_action action = read(body);
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(node, lane_of(port->rsip), module_bound, [&node, port, action = std::move(action)] {
    return reply_to(action(node, *port), [port](const module_report &report) {
      return show_module_action(report, *port);
    });
  });
}

api_reply post_insert(driver &node, const api_request &request) {
  return post(node, request, lane_of_look, [](request_body &body) -> module_action {
    const auto file = body.optional_text("description");
    if (!file) {
      return
          [](driver &driver, const port_description &port) { return insert_module(driver, port); };
    }
    if (!std::filesystem::path(*file).is_absolute()) {
      body.complain("\"description\" is not an absolute path");
    }
    return [file](driver &driver, const port_description &port) {
      return insert_module(driver, port, *file);
    };
  });
}

api_reply post_remove(driver &node, const api_request &request) {
  return post(node, request, lane_of_remedy,
              [](request_body &) -> module_action { return remove_module; });
}

api_reply post_faults(driver &node, const api_request &request) {
  return post(node, request, lane_of_remedy, [](request_body &body) -> module_action {
    lum_linux::fault_script script;
    std::string error;
    const std::string text = body.text("script");
    if (!text.empty() && !parse_fault_script(text, script, error)) body.complain(error);
    return [script](driver &driver, const port_description &port) {
      return set_module_faults(driver, port, script);
    };
  });
}

api_reply post_release(driver &node, const api_request &request) {
  return post(node, request, lane_of_remedy,
              [](request_body &) -> module_action { return release_module; });
}

api_reply post_line(driver &node, const api_request &request, lum_linux::module_line line) {
  return post(node, request, lane_of_remedy, [line](request_body &body) -> module_action {
    const bool on = body.boolean("on");
    return [line, on](driver &driver, const port_description &port) {
      return set_module_line(driver, port, line, on);
    };
  });
}

api_reply post_reset(driver &node, const api_request &request) {
  return post_line(node, request, lum_linux::module_line::reset);
}

api_reply post_low_power(driver &node, const api_request &request) {
  return post_line(node, request, lum_linux::module_line::low_power);
}

api_reply post_poke(driver &node, const api_request &request) {
  return post(node, request, lane_of_look, [](request_body &body) -> module_action {
    const uint32_t page = body.number("page", 0, lum_linux::module_max_pages - 1);
    const uint32_t offset = body.number("offset", 0, 2 * lum_linux::module_page_size - 1);
    const auto value = static_cast<uint8_t>(body.number("value", 0, 255));
    return [page, offset, value](driver &driver, const port_description &port) {
      return poke_module(driver, port, page, offset, value);
    };
  });
}

}  // namespace

std::span<const route> module_action_routes() {
  static constexpr route routes[] = {
      {"POST", "/v1/modules/{name}/insert", post_insert},
      {"POST", "/v1/modules/{name}/remove", post_remove},
      {"POST", "/v1/modules/{name}/faults", post_faults},
      {"POST", "/v1/modules/{name}/release", post_release},
      {"POST", "/v1/modules/{name}/reset", post_reset},
      {"POST", "/v1/modules/{name}/low-power", post_low_power},
      {"POST", "/v1/modules/{name}/poke", post_poke},
  };
  return routes;
}

}  // namespace lumd
