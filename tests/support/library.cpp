#include "library.h"

#include "base/locks.h"
#include "base/shared.h"

namespace support {

lum_platform_cbs &parameter_callbacks() {
  static lum_platform_cbs table = full_callbacks();
  return table;
}

lum_infra_params parameters() {
  lum_infra_params params = {};
  params.evm = client_manager;
  params.platform_cbs = &parameter_callbacks();
  return params;
}

void open_traces() {
  ASSERT_EQ(lum_init_ctrace(client_manager), 0u);
  clear_record();
}

uint32_t boot(const lum_infra_params &params) {
  lum_lib_init();
  const uint32_t rc = lum_infra_init(&params);
  if (lum_get_ctx()->dom_thread_started != 0) polling.wait_asleep();
  return rc;
}

lum_port_node_info &node_at(uint32_t rsip) {
  lum_port_node_info *node = lum_get_port_node_from_rsip(rsip);
  if (node == nullptr) {
    ADD_FAILURE() << "no port " << shown(hex{rsip});
    static lum_port_node_info nowhere;
    return nowhere;
  }
  return *node;
}

lum_port_node_info &add_port(uint32_t rsip) {
  const uint32_t port = rsip & 0xFF;
  const uint32_t handle = handle_for(rsip);
  lum_add_device_to_ports_db(rsip >> 24, rsip >> 16 & 0xFF, rsip >> 8 & 0xFF, 1, &port, &handle);
  return node_at(rsip);
}

lum_port_node_info &add_polled_port(uint32_t rsip) {
  lum_port_node_info &node = add_port(rsip);
  modules.at(rsip >> 16 & 0xFF, rsip >> 8 & 0xFF, rsip & 0xFF);
  lum::shared_store(node.data.inserted, 1);
  lum::shared_store(node.data.is_dom_enabled, 1);
  return node;
}

void create_ports(uint32_t slot, uint32_t instance, const std::vector<uint32_t> &ports) {
  const lum_slot_props slot_props = {1, static_cast<uint32_t>(ports.size())};
  ASSERT_EQ(lum_plat_init(0, slot, instance, &slot_props), 0u);
  std::vector<lum_port_props> props;
  for (const uint32_t port : ports) {
    lum_port_props each = {};
    each.rsip = rsip_at(slot, instance, port);
    each.port_index = port;
    each.port_handle = handle_for(each.rsip);
    props.push_back(each);
  }
  ASSERT_EQ(lum_create_ports(static_cast<uint32_t>(props.size()), props.data()), 0u);
  im.answer_all();
}

void set_controller_count(uint8_t count) {
  lum::shared_store(lum_get_ctx()->controller_count, count);
}

}  // namespace support
