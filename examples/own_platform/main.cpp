// A driver on a platform of its own: one slot with one port. It brings the port up, waits for the
// first polling cycle and prints what the module says.
//
// This is the least that liblum needs. What a real platform puts in the place of each part is told
// in docs/porting.md.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <thread>

#include "own_platform.h"

namespace {

std::atomic<uint32_t> created{0};

cerrno note_created(uint32_t operation, uint32_t count, const uint32_t *, const uint32_t *,
                    const uint32_t *) {
  if (operation == 1) created += count;
  return 0;
}

cerrno start_library() {
  lum_platform_cbs table = callbacks();
  table.ctrl_op_notify = note_created;
  lum_infra_params params = {};
  params.evm = the_event_manager;
  params.platform_cbs = &table;
  std::strcpy(params.process_name, "own_platform");
  const cerrno rc = lum_lib_init();
  return rc != 0 ? rc : lum_infra_init(&params);
}

cerrno create_port() {
  lum_slot_props slot_props = {};
  slot_props.used = 1;
  slot_props.capacity = 1;
  lum_port_props port_props = {};
  port_props.rsip = the_slot << 16 | the_port;
  port_props.port_handle = the_port_handle;
  port_props.port_index = the_port;
  const cerrno rc = lum_plat_init(0, the_slot, 0, &slot_props);
  return rc != 0 ? rc : lum_create_ports(1, &port_props);
}

bool wait_for(const std::function<bool()> &condition, int seconds) {
  for (int tenths = 0; tenths < seconds * 10 && !condition(); ++tenths) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return condition();
}

}  // namespace

int main() {
  cerrno rc = start_library();
  if (rc == 0) rc = create_port();
  if (rc != 0) {
    std::fprintf(stderr, "the port cannot be brought up: %s\n", cerr_strerror(rc));
    return 1;
  }
  if (!wait_for([] { return created == LUM_SUB_PORTS; }, 10)) {
    std::fprintf(stderr, "the controllers were not created\n");
    return 1;
  }
  std::printf("controllers created: %u\n", created.load());
  if (!wait_for([] { return led_state() == LUM_LED_NORMAL; }, 20)) {
    std::fprintf(stderr, "the module was not polled\n");
    return 1;
  }
  uint32_t ifhandle = 0;
  static lum_hw_info_out record;  // big: not on the stack
  const auto *bytes = reinterpret_cast<const char *>(&record);
  rc = lum_safely_get_ifhandle(the_port_handle, 0, &ifhandle);
  if (rc == 0) rc = lum_get_hw_info(1, &ifhandle, &record);
  if (rc != 0) {
    std::fprintf(stderr, "the module's state cannot be had: %s\n", cerr_strerror(rc));
    return 1;
  }
  int32_t temperature = 0;
  std::memcpy(&temperature, bytes + LUM_HW_OUT_TEMPERATURE, sizeof temperature);
  std::printf("%s: %.2f C, LED normal\n", bytes + LUM_HW_OUT_VENDOR_NAME, temperature / 100.0);
  std::fflush(stdout);
  _exit(0);  // the polling thread never ends: leave without taking anything away from under it
}
