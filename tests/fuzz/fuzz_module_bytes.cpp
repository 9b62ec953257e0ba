// Modules whose memory holds any bytes: identity, configuration and report.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "lum.h"

// What the module answers: the input, over and over.
static const std::uint8_t *memory;
static std::size_t memory_size;

static std::uint8_t memory_at(std::uint32_t page, std::uint32_t offset) {
  return memory_size == 0 ? 0 : memory[(page * 128 + offset) % memory_size];
}

static cerrno read_byte(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t page,
                        std::uint32_t offset, std::uint8_t *value) {
  *value = memory_at(page, offset);
  return 0;
}

static cerrno read_block(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t page,
                         std::uint32_t offset, std::int32_t length, std::uint8_t *buffer) {
  for (std::int32_t i = 0; i < length; ++i) {
    buffer[i] = memory_at(page, offset + static_cast<std::uint32_t>(i));
  }
  return 0;
}

static const bool started = [] {
  lum_ctx *context = lum_get_ctx();
  context->platform_cbs.i2c_read_byte = read_byte;
  context->platform_cbs.i2c_read_block = read_block;
  lum_platform_data_init(0, 0);
  const std::uint32_t ports[] = {3};
  const std::uint32_t handles[] = {1};
  lum_add_device_to_ports_db(0, 1, 0, 1, ports, handles);
  lum_update_ifhandle("Ots0_1_0_3_0", 100);
  lum_update_ifhandle("Ots0_1_0_3_1", 101);
  return true;
}();

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  memory = data;
  memory_size = size;
  constexpr std::uint32_t rsip = 0x10003;
  if (lum_update_vendor_info(rsip, 1) != 0) std::abort();
  lum_port_data &port = lum_get_port_node_from_port_handle(1)->data;
  std::memcpy(port.dom, data, size < sizeof port.dom ? size : sizeof port.dom);
  std::memcpy(port.port_cfg, data, size < sizeof port.port_cfg ? size : sizeof port.port_cfg);
  const std::uint32_t ifhandles[] = {100, 101};
  static lum_hw_info_out records[2];
  if (lum_get_hw_info(2, ifhandles, records) != 0) std::abort();
  lum_provision_port_cfg_data(0, &port, ~0ull);
  lum_provision_port_cfg_data(1, &port, ~0ull);
  lum_update_vendor_info(rsip, 0);
  return 0;
}
