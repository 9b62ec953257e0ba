// The module, the LED and the rest of the callback table: one port, whose module is an array of
// bytes. Its other cages are empty.
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "own_platform.h"

namespace {

using module_pages = std::array<std::array<uint8_t, 128>, 5>;  // the lower page first

module_pages make_module() {
  module_pages pages = {};
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

cerrno read_byte(uint32_t, uint32_t, uint32_t port, uint32_t page, uint32_t offset,
                 uint8_t *value) {
  if (port != the_port) return ENODEV;
  *value = byte_at(page, offset);
  return 0;
}

cerrno read_block(uint32_t, uint32_t, uint32_t port, uint32_t page, uint32_t offset, int32_t length,
                  uint8_t *buffer) {
  if (port != the_port) return ENODEV;
  for (int32_t i = 0; i < length; ++i) {
    buffer[i] = byte_at(page, offset + static_cast<uint32_t>(i));
  }
  return 0;
}

cerrno set_led(uint32_t, uint32_t, uint32_t state) {
  led = state;
  return 0;
}

cerrno get_led(uint32_t, uint32_t, uint32_t *state) {
  *state = led;
  return 0;
}

cerrno no_upgrade(uint32_t, uint32_t *status) {
  *status = 0;
  return 0;
}

}  // namespace

lum_platform_cbs callbacks() {
  lum_platform_cbs table = {};
  table.im_req_by_name = im_request_by_name;
  table.im_update_req_by_ifhandle = im_update_by_ifhandle;
  table.led_get_state = get_led;
  table.led_set_state = set_led;
  table.fw_upgrade_status = no_upgrade;
  table.i2c_read_byte = read_byte;
  table.i2c_read_block = read_block;
  return table;
}

uint32_t led_state() { return led; }
