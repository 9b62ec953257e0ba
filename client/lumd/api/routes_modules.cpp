// A port's module: what is known of it, and its memory.
#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cstdint>

#include "api/action.h"
#include "api/routes.h"
#include "node/driver.h"
#include "node/find_port.h"
#include "views/module_view.h"

namespace lumd {
namespace {

constexpr uint32_t page_bytes = 256;
constexpr std::chrono::seconds page_bound(2);

// Reads the query's page number; false when it is none.
bool read_page_number(const std::string &text, uint32_t &page) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), page);
  return error == std::errc() && end == text.data() + text.size() &&
         page < lum_linux::module_max_pages;
}

// The module may take as long as it likes over it, but not the one who asks.
api_reply add_page(driver &node, uint32_t rsip, uint32_t page, const json &shown) {
  api_reply reply = act(node, lane_of_look(rsip), page_bound, [&node, rsip, page, shown] {
    std::array<uint8_t, page_bytes> bytes = {};
    std::string why;
    const cerrno rc = node.platform().modules().peek(rsip, page, 0, bytes, &why);
    if (rc == lum_linux::module_busy) {
      return refuse(409, fmt::format("page {} cannot be read: a transfer does not end", page));
    }
    if (!CERR_IS_OK(rc)) {
      return refuse(409, fmt::format("page {} cannot be read: {}", page,
                                     why.empty() ? cerr_strerror(rc) : why));
    }
    const auto now = node.platform().modules().status(rsip);
    if (now && shown.at("module").at("insertion") != now->insertion) {
      return refuse(409, "another module has come into the cage meanwhile; ask again");
    }
    json with_page = shown;
    with_page["page"] = show_page(page, bytes);
    return api_reply{200, std::move(with_page)};
  });
  if (reply.status != 202) return reply;
  return refuse(409, fmt::format("page {} cannot be read: the module does not answer", page));
}

// The module's identity and readings come from what the library has polled; its memory is looked at
// only when a page is asked for.
api_reply get_module(driver &node, const api_request &request) {
  const port_place place = find_place(node.node(), request.parameters[0]);
  if (!place) return refuse_port(node.node(), request.parameters[0]);
  const auto *port = place.port;
  const auto status = node.platform().modules().status(port->rsip);
  if (!status) return refuse_port(node.node(), request.parameters[0]);
  json shown = show_module(node, *port, *status);
  keep_sub_port(place.sub_port, shown.at("sub_ports"));
  if (const auto asked = request.query.find("page"); asked != request.query.end()) {
    uint32_t page = 0;
    if (!read_page_number(asked->second, page)) {
      return refuse(400, fmt::format("the page is \"{}\", expected 0 to {}", asked->second,
                                     lum_linux::module_max_pages - 1));
    }
    return add_page(node, port->rsip, page, shown);
  }
  return {200, std::move(shown)};
}

}  // namespace

std::span<const route> module_routes() {
  static constexpr route routes[] = {
      {"GET", "/v1/modules/{name}", get_module, {"page"}},
  };
  return routes;
}

}  // namespace lumd
