// Entity-agent batches: any operation, any entry bytes.
#include <array>
#include <cstdint>
#include <cstring>

#include "ea_server.h"
#include "lum.h"

static std::array<std::uint8_t, EA_REQUEST_ENTRY_SIZE> entry;

static const bool started = [] {
  lum_platform_data_init(0, 0);
  const std::uint32_t ports[] = {3};
  const std::uint32_t handles[] = {1};
  lum_add_device_to_ports_db(0, 1, 0, 1, ports, handles);
  return true;
}();

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::uint32_t operation = 0;
  if (size < sizeof operation) return 0;
  std::memcpy(&operation, data, sizeof operation);
  data += sizeof operation;
  size -= sizeof operation;
  entry.fill(0);
  std::memcpy(entry.data(), data, size < entry.size() ? size : entry.size());
  lum_ots_ea_hdlrs(operation, entry.data(), nullptr);
  lum_ots_ea_hdlrs(operation % 6, entry.data(), nullptr);
  char name[1][LUM_IFNAME_SIZE];
  std::memcpy(name, entry.data(), sizeof name);
  const std::uint32_t ifhandle = operation;
  lum_set_controller_ready_info(1, &ifhandle, name);
  return 0;
}
