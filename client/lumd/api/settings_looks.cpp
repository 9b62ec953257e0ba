#include "api/settings_looks.h"

#include "api/action.h"
#include "node/driver.h"

namespace lumd {
namespace {

constexpr std::chrono::seconds look_bound(2);

using all_saved = std::vector<saved_settings>;

pending_look<all_saved> ask_store(const port_list &ports) {
  return {store_lane, [ports] {
            all_saved saved;
            for (const auto *port : ports) saved.push_back(read_saved(port->rsip));
            return saved;
          }};
}

}  // namespace

std::vector<settings_look> look_at_settings(driver &node, const port_list &ports,
                                            bool asks_modules) {
  const auto deadline = std::chrono::steady_clock::now() + look_bound;
  auto store = ask_store(ports);
  std::vector<pending_look<held_settings>> modules;
  for (const auto *port : asks_modules ? ports : port_list{}) {
    modules.emplace_back(lane_of_look(port->rsip),
                         [&node, port] { return read_held(node, *port); });
  }
  const all_saved saved = store.by(deadline, [&ports](const std::string &reason) {
    return all_saved(ports.size(), not_known("the store was not read: " + reason));
  });
  const auto copies = copy_ports();
  std::vector<settings_look> looks;
  for (std::size_t i = 0; i < ports.size(); ++i) {
    settings_look one = {ports[i], {}, saved[i], {}};
    if (const auto copy = copies.find(ports[i]->rsip); copy != copies.end()) {
      one.in_force = copy->second;
    }
    if (asks_modules) one.held = modules[i].by(deadline, not_held);
    looks.push_back(std::move(one));
  }
  return looks;
}

}  // namespace lumd
