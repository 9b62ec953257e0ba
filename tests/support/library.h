// Short ways to a running library with ports.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "callbacks.h"
#include "checkpoints.h"
#include "events.h"
#include "interface_manager.h"
#include "lum.h"
#include "matchers.h"
#include "module_bays.h"
#include "record.h"
#include "script.h"
#include "seams.h"

namespace support {

// Start-up parameters with the full callback table. The table is static; `change` may null a slot.
lum_infra_params parameters();
lum_platform_cbs &parameter_callbacks();

// Opens the trace channels only.
void open_traces();

// lum_lib_init and lum_infra_init; then waits for the polling thread's first sleep, unless it could
// not be created. Returns lum_infra_init's result.
uint32_t boot(const lum_infra_params &params = parameters());

constexpr uint32_t rsip_at(uint32_t slot, uint32_t instance, uint32_t port) {
  return slot << 16 | instance << 8 | port;
}

// The port handle that the helpers give a port.
constexpr uint32_t handle_for(uint32_t rsip) {
  return (rsip >> 16 & 0xF) << 11 | (rsip >> 8 & 0x3) << 9 | 0x100 | (rsip & 0xFF);
}

// The nodes of ports, with their handles and mutexes, without controllers.
lum_port_node_info &add_port(uint32_t rsip);
// As above with DOM polling enabled and a module present, as the completion leaves them.
lum_port_node_info &add_polled_port(uint32_t rsip);

// The whole road: slot properties, lum_create_ports, the interface manager's answer.
void create_ports(uint32_t slot, uint32_t instance, const std::vector<uint32_t> &ports);

lum_port_node_info &node_at(uint32_t rsip);
inline lum_port_data &data_at(uint32_t rsip) { return node_at(rsip).data; }

// Writes what makes polling worth while: the context's controller count.
void set_controller_count(uint8_t count);

// A library that has been booted, with an empty record.
class running_library : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(boot(), 0u);
    clear_record();
  }
};

}  // namespace support
