#include "node/described_node.h"

#include <algorithm>
#include <memory>

namespace lumd {
namespace {

using lum_linux::node_description;
using lum_linux::port_description;

void take_over_names(const node_description &fresh, node_description &into) {
  for (auto &slot : into.slots) {
    for (auto &instance : slot.instances) {
      for (port_description &port : instance.ports) {
        if (const auto *same = fresh.find(port.rsip); same != nullptr) port.name = same->name;
      }
    }
  }
}

// All that a fact with `live` stands for, but the names of ports.
void take_over_rest(const node_description &fresh, node_description &into) {
  const uint32_t handle_base = into.interface_manager.handle_base;
  into.name = fresh.name;
  into.http_names = fresh.http_names;
  into.http_certificate = fresh.http_certificate;
  into.http_key = fresh.http_key;
  into.http_client_ca = fresh.http_client_ca;
  into.units = fresh.units;
  into.interface_manager = fresh.interface_manager;
  into.interface_manager.handle_base = handle_base;
}

}  // namespace

described_node::described_node(const node_description &running, const node_description &as_read)
    : now_(new node_description(running)), facts_(facts_of(as_read)) {}

description_facts described_node::facts() const {
  const std::lock_guard lock(mutex_);
  return facts_;
}

// Requests may still use what held before, so it is left to them.
std::vector<description_change> described_node::take_over(const node_description &fresh) {
  const std::lock_guard lock(mutex_);
  const description_facts is_to_be = facts_of(fresh);
  std::vector<description_change> changes = changes_between(facts_, is_to_be);
  const bool is_any_live = std::any_of(changes.begin(), changes.end(),
                                       [](const description_change &one) { return one.live; });
  if (!is_any_live) return changes;
  const bool same_ports = has_same_ports(facts_, is_to_be);
  auto next = std::make_unique<node_description>(now());
  take_over_rest(fresh, *next);
  if (same_ports) take_over_names(fresh, *next);
  for (description_fact &fact : facts_) {
    if (!fact.live || (!same_ports && !fact.of.empty())) continue;
    for (const description_fact &other : is_to_be) {
      if (other.name == fact.name) fact.value = other.value;
    }
  }
  now_ = next.release();
  return changes;
}

}  // namespace lumd
