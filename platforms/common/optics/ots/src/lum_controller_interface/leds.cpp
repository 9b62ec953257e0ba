// Port LEDs.
#include <atomic>
#include <cerrno>

#include "base/shared.h"
#include "base/trace.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_controller_interface";

static cerrno show(std::uint32_t rsip, std::uint32_t state);
static void show_again(lum_port_node_info &node, std::uint32_t shown);
static std::uint32_t recorded_state(lum_port_node_info &node);

// The state asked for is recorded first, and stands also when the platform could not set it. No
// lock is held over the callback. Of two threads that set one LED at once the one may have the last
// word with the LED and the other with the record; so each looks again after its call, and whoever
// ends last leaves the LED as recorded.
cerrno lum_optics_led_set_state(std::uint32_t rsip, std::uint32_t, std::uint32_t state) {
  ports_reader reader;
  lum_port_node_info *node = find_port(rsip);
  if (node != nullptr) std::atomic_ref(node->data.led_state).exchange(state);
  const cerrno rc = show(rsip, state);
  if (node != nullptr) show_again(*node, state);
  if (node == nullptr || shared_load(node->data.removed) != 0) {
    LUM_ERROR(153, "Port not found in DB rsip=0x%x\n", rsip);
    return EINVAL;
  }
  return rc;
}

cerrno lum_optics_led_get_state(std::uint32_t rsip, std::uint32_t, std::uint32_t *state) {
  const lum_ctx *context = lum_get_ctx();
  if (context == nullptr || context->platform_cbs.led_get_state == nullptr) return 0;
  if (context->platform_cbs.led_get_state(rsip, 0, state) == 0) return 0;
  ports_reader reader;
  const lum_port_node_info *node = find_port(rsip);
  if (node == nullptr) {
    LUM_ERROR(154, "Port not found in DB rsip=0x%x\n", rsip);
    return EINVAL;
  }
  *state = shared_load(node->data.led_state);
  return 0;
}

// The LED is cleared before a new state is set.
static cerrno show(std::uint32_t rsip, std::uint32_t state) {
  const lum_ctx *context = lum_get_ctx();
  if (context == nullptr || context->platform_cbs.led_set_state == nullptr) return 0;
  context->platform_cbs.led_set_state(rsip, 0, LUM_LED_OFF);
  return state == LUM_LED_OFF ? 0 : context->platform_cbs.led_set_state(rsip, 0, state);
}

// As long as something else is recorded than was shown.
static void show_again(lum_port_node_info &node, std::uint32_t shown) {
  for (std::uint32_t now = recorded_state(node); now != shown; now = recorded_state(node)) {
    show(node.rsip, now);
    shown = now;
  }
}

// Of the port that has the place now, else the last one of this. Read after all that the callback
// has written.
static std::uint32_t recorded_state(lum_port_node_info &node) {
  lum_port_node_info *there = &node;
  if (shared_load(node.data.removed) != 0) there = find_port(node.rsip);
  if (there == nullptr) there = &node;
  return std::atomic_ref(there->data.led_state).fetch_or(0);
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
