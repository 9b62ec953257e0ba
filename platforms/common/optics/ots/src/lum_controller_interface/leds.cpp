// Port LEDs.
#include <array>
#include <cerrno>
#include <mutex>

#include "base/quiet_lock.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_controller_interface";

// A port's LED is set by one thread at a time. Of two at once the one might have the last word with
// the LED and the other with the record, and the polling thread, which goes by the record, would
// never put the LED right. Ports share these locks by number, held for the callback's time.
static quiet_lock &setting_of(std::uint32_t rsip) {
  static std::array<quiet_lock, 64> locks;
  return locks[rsip % locks.size()];
}

// The LED is cleared before a new state is set. The state asked for is recorded also when the
// platform could not set it.
cerrno lum_optics_led_set_state(std::uint32_t rsip, std::uint32_t, std::uint32_t state) {
  const std::lock_guard lock(setting_of(rsip));
  cerrno rc = 0;
  const lum_ctx *context = lum_get_ctx();
  if (context != nullptr && context->platform_cbs.led_set_state != nullptr) {
    context->platform_cbs.led_set_state(rsip, 0, LUM_LED_OFF);
    if (state != LUM_LED_OFF) rc = context->platform_cbs.led_set_state(rsip, 0, state);
  }
  ports_reader reader;
  lum_port_node_info *node = lum_get_port_node_from_rsip(rsip);
  if (node == nullptr) {
    LUM_ERROR(153, "Port not found in DB rsip=0x%x\n", rsip);
    return EINVAL;
  }
  shared_store(node->data.led_state, state);
  return rc;
}

cerrno lum_optics_led_get_state(std::uint32_t rsip, std::uint32_t, std::uint32_t *state) {
  const lum_ctx *context = lum_get_ctx();
  if (context == nullptr || context->platform_cbs.led_get_state == nullptr) return 0;
  if (context->platform_cbs.led_get_state(rsip, 0, state) == 0) return 0;
  ports_reader reader;
  const lum_port_node_info *node = lum_get_port_node_from_rsip(rsip);
  if (node == nullptr) {
    LUM_ERROR(154, "Port not found in DB rsip=0x%x\n", rsip);
    return EINVAL;
  }
  *state = shared_load(node->data.led_state);
  return 0;
}

void lum_get_final_sw_led_state(std::uint32_t first, std::uint32_t second, std::uint32_t *result) {
  if (first == second) {
    *result = first;
    return;
  }
  if (first == LUM_LED_NORMAL || second == LUM_LED_NORMAL) *result = LUM_LED_NORMAL;
  if (second == LUM_LED_OFF) {
    *result = first;
  } else if (first == LUM_LED_OFF) {
    *result = second;
  }
}
