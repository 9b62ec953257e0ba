#include <cassert>

#include "base/shared.h"
#include "lum_ports_db/lum_ports_db.h"

namespace lum {

all_ports::iterator all_ports::begin() const {
  return iterator(static_cast<lum_port_node_info *>(wavl_get_first(&lum_platform.tree, 0)));
}

all_ports::iterator &all_ports::iterator::operator++() {
  node_ = static_cast<lum_port_node_info *>(wavl_get_next(&lum_platform.tree, node_, 0));
  return *this;
}

lum_port_node_info *walk_to(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                            std::uint32_t port) {
  assert(in_reader_section());
  for (lum_port_node_info &node : all_ports()) {
    if (stands_at(node.data, rack, slot, instance, port)) return &node;
  }
  return nullptr;
}

found_sub_port walk_to_ifhandle(std::uint32_t ifhandle) {
  assert(in_reader_section());
  for (lum_port_node_info &node : all_ports()) {
    for (std::uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
      if (shared_load(node.data.sub_port[s].ifhandle) == ifhandle) return {&node, s};
    }
  }
  return {nullptr, 0};
}

std::uint32_t sub_port_of(const lum_port_data &port, std::uint32_t ifhandle) {
  return shared_load(port.sub_port[0].ifhandle) == ifhandle ? 0 : 1;
}

}  // namespace lum
