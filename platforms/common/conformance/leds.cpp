// The callbacks of LEDs and of interfaces that liblum does not know.
#include "check.h"

namespace conformance {
namespace {

void an_led_shows_what_was_set() {
  start_platform();
  const lum_platform_cbs &table = callbacks();
  if (table.led_set_state == nullptr) throw no_case{"LEDs are not set"};
  const uint32_t rsip = platform().port.rsip;
  for (const uint32_t state : {LUM_LED_OFF, LUM_LED_NORMAL, LUM_LED_OFF, LUM_LED_FAULT}) {
    const cerrno rc = table.led_set_state(rsip, 0, state);
    require(rc == 0, "the LED cannot be set to %u: %u", state, rc);
    uint32_t shown = 99;
    if (table.led_get_state == nullptr) continue;
    require(table.led_get_state(rsip, 0, &shown) == 0, "the LED cannot be read");
    require(shown == state, "the LED shows %u after it was set to %u", shown, state);
  }
}

void an_unknown_interface_has_no_name() {
  start_platform();
  if (callbacks().ifname_from_ifh == nullptr) throw no_case{"no interface is known by its handle"};
  char name[LUM_DEVID_NAME_SIZE] = "";
  require(callbacks().ifname_from_ifh(0xFFFFFFF0, name) != 0,
          "an unknown interface is called %.64s", name);
}

}  // namespace

std::vector<check> led_checks() {
  return {{"leds.show_what_was_set", an_led_shows_what_was_set},
          {"interfaces.unknown_have_no_name", an_unknown_interface_has_no_name}};
}

}  // namespace conformance
