#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "action.h"
#include "driver.h"
#include "find_port.h"
#include "lum_linux/modules.h"
#include "request_body.h"
#include "routes.h"

namespace lumd {
namespace {

using lum_linux::port_description;

constexpr std::chrono::seconds bound(5);
constexpr cerrno nothing_there = 2;

// What has become of the module, or why not.
api_reply report(driver &node, const port_description &port, cerrno rc, const std::string &why) {
  if (!CERR_IS_OK(rc)) {
    std::string reason = why.empty() ? cerr_strerror(rc) : why;
    std::replace(reason.begin(), reason.end(), '\n', ';');
    return refuse(409, fmt::format("port {}: {}", port.name, reason));
  }
  const auto status = node.platform().modules().status(port.rsip);
  json reply = {{"result", result_of(rc)}, {"name", port.name}};
  if (status) {
    reply["present"] = status->present;
    reply["pulled"] = status->pulled;
    reply["faults"] = to_string(status->faults);
  }
  conclude(reply, true, "");
  return {200, std::move(reply)};
}

// Reads what belongs to the path and lets `read` read the rest and say what to do.
using module_action = std::function<api_reply(driver &, const port_description &)>;

api_reply post(driver &node, const api_request &request,
               const std::function<module_action(request_body &)> &read) {
  const auto *port = find_port(node, request.parameters[0]);
  if (port == nullptr) return refuse_unknown_port(request.parameters[0]);
  request_body body(request.body);
  module_action action = read(body);
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(bound, [&node, port, action = std::move(action)] { return action(node, *port); });
}

api_reply insert_again(driver &node, const port_description &port) {
  auto &modules = node.platform().modules();
  const cerrno rc = modules.insert(port.rsip);
  std::string why;
  if (rc == nothing_there) {
    why = "there is no module at " + modules.last_status(port.rsip)->location;
  }
  return report(node, port, rc, why);
}

api_reply insert_another(driver &node, const port_description &port, const std::string &file) {
  std::string error;
  const cerrno rc = node.platform().modules().insert(port.rsip, file, error);
  return report(node, port, rc, error);
}

api_reply post_insert(driver &node, const api_request &request) {
  return post(node, request, [](request_body &body) -> module_action {
    const auto file = body.optional_text("description");
    if (!file) return insert_again;
    if (!std::filesystem::path(*file).is_absolute()) {
      body.complain("\"description\" is not an absolute path");
    }
    return [file](driver &driver, const port_description &port) {
      return insert_another(driver, port, *file);
    };
  });
}

api_reply post_remove(driver &node, const api_request &request) {
  return post(node, request, [](request_body &) -> module_action {
    return [](driver &driver, const port_description &port) {
      return report(driver, port, driver.platform().modules().remove(port.rsip), "");
    };
  });
}

api_reply post_faults(driver &node, const api_request &request) {
  return post(node, request, [](request_body &body) -> module_action {
    lum_linux::fault_script script;
    std::string error;
    const std::string text = body.text("script");
    if (!text.empty() && !parse_fault_script(text, script, error)) body.complain(error);
    return [script](driver &driver, const port_description &port) {
      return report(driver, port, driver.platform().modules().set_faults(port.rsip, script), "");
    };
  });
}

api_reply post_release(driver &node, const api_request &request) {
  return post(node, request, [](request_body &) -> module_action {
    return [](driver &driver, const port_description &port) {
      return report(driver, port, driver.platform().modules().release(port.rsip), "");
    };
  });
}

api_reply post_poke(driver &node, const api_request &request) {
  return post(node, request, [](request_body &body) -> module_action {
    const uint32_t page = body.number("page", 0, lum_linux::module_max_pages - 1);
    const uint32_t offset = body.number("offset", 0, 2 * lum_linux::module_page_size - 1);
    const auto value = static_cast<uint8_t>(body.number("value", 0, 255));
    return [page, offset, value](driver &driver, const port_description &port) {
      return report(driver, port, driver.platform().modules().poke(port.rsip, page, offset, value),
                    "");
    };
  });
}

constexpr route routes[] = {
    {"POST", "/v1/modules/{}/insert", post_insert},
    {"POST", "/v1/modules/{}/remove", post_remove},
    {"POST", "/v1/modules/{}/faults", post_faults},
    {"POST", "/v1/modules/{}/release", post_release},
    {"POST", "/v1/modules/{}/poke", post_poke},
};

}  // namespace

std::span<const route> module_action_routes() { return routes; }

}  // namespace lumd
