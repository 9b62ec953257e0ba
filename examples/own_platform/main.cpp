// A driver on a platform of its own: one slot with one port, whose module is an array of bytes. It
// brings the port up, waits for the first polling cycle and prints what the module says.
//
// This is the least that liblum needs. What a real platform puts in the place of each part is told
// in docs/porting.md.
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "own_platform.h"

namespace {

constexpr uint32_t rack = 0, slot = 1, instance = 0, port = 3;
constexpr uint32_t port_handle = 7;

// ---- The module: pages of 128 bytes, the lower page first ----

std::array<std::array<uint8_t, 128>, 5> make_module() {
  std::array<std::array<uint8_t, 128>, 5> pages = {};
  pages[0][14] = 41;  // degrees Celsius
  pages[0][39] = 1;   // firmware 1.7
  pages[0][40] = 7;
  std::memcpy(&pages[1][1], "OWN PLATFORM    ", 16);
  return pages;
}
const auto module = make_module();
std::atomic<uint32_t> led{0};

uint8_t byte_at(uint32_t page, uint32_t offset) {
  const size_t half = offset < 128 ? 0 : page + 1;
  return half < module.size() && offset < 256 ? module[half][offset % 128] : 0;
}

cerrno read_byte(uint32_t, uint32_t, uint32_t, uint32_t page, uint32_t offset, uint8_t *value) {
  *value = byte_at(page, offset);
  return 0;
}

cerrno read_block(uint32_t, uint32_t, uint32_t, uint32_t page, uint32_t offset, int32_t length,
                  uint8_t *buffer) {
  for (int32_t i = 0; i < length; ++i) {
    buffer[i] = byte_at(page, offset + static_cast<uint32_t>(i));
  }
  return 0;
}

// ---- The other callbacks ----

std::atomic<uint32_t> created{0};

cerrno note_created(uint32_t operation, uint32_t count, const uint32_t *, const uint32_t *,
                    const uint32_t *) {
  if (operation == 1) created += count;
  return 0;
}

cerrno set_led(uint32_t, uint32_t, uint32_t state) {
  led = state;
  return 0;
}

cerrno no_upgrade(uint32_t, uint32_t *status) {
  *status = 0;
  return 0;
}

lum_platform_cbs callbacks() {
  lum_platform_cbs table = {};
  table.im_req_by_name = im_request_by_name;
  table.im_update_req_by_ifhandle = im_update_by_ifhandle;
  table.ctrl_op_notify = note_created;
  table.led_set_state = set_led;
  table.fw_upgrade_status = no_upgrade;
  table.i2c_read_byte = read_byte;
  table.i2c_read_block = read_block;
  return table;
}

// ---- The story ----

cerrno start_library() {
  const lum_platform_cbs table = callbacks();
  lum_infra_params params = {};
  params.evm = 1;
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
  port_props.rsip = rack << 24 | slot << 16 | instance << 8 | port;
  port_props.port_handle = port_handle;
  port_props.port_index = port;
  const cerrno rc = lum_plat_init(rack, slot, instance, &slot_props);
  return rc != 0 ? rc : lum_create_ports(1, &port_props);
}

bool wait_for(const std::atomic<uint32_t> &number, uint32_t value, int seconds) {
  for (int tenths = 0; tenths < seconds * 10 && number != value; ++tenths) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return number == value;
}

}  // namespace

int main() {
  cerrno rc = start_library();
  if (rc == 0) rc = create_port();
  if (rc != 0) {
    std::fprintf(stderr, "the port cannot be brought up: %s\n", cerr_strerror(rc));
    return 1;
  }
  if (!wait_for(created, LUM_SUB_PORTS, 10)) {
    std::fprintf(stderr, "the controllers were not created\n");
    return 1;
  }
  std::printf("controllers created: %u\n", created.load());
  if (!wait_for(led, LUM_LED_NORMAL, 20)) {
    std::fprintf(stderr, "the module was not polled\n");
    return 1;
  }
  uint32_t ifhandle = 0;
  static lum_hw_info_out record;  // big: not on the stack
  const auto *bytes = reinterpret_cast<const char *>(&record);
  rc = lum_safely_get_ifhandle(port_handle, 0, &ifhandle);
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
