// liblum and the platform together: the roads that a driver takes.
#include <cstring>

#include "library.h"
#include "lum/hardware_info.h"
#include "lum/lifecycle.h"
#include "lum/lookups.h"

namespace conformance {
namespace {

// The vendor's name, without the blanks behind it, as the module has it.
std::string vendor_in_module() {
  char text[17] = "";
  const auto [slot, instance, port] = port_cage();
  const cerrno rc = callbacks().i2c_read_block(slot, instance, port, 0, 129, 16,
                                               reinterpret_cast<uint8_t *>(text));
  require(rc == 0, "the vendor's name cannot be read: %u", rc);
  std::string name = text;
  name.erase(name.find_last_not_of(' ') + 1);
  return name;
}

void a_module_is_polled() {
  bring_up();
  require(comes([] { return polled_reads() > 0; }), "the module is not polled");
  static lum_hw_info_out record;  // big: not on the stack
  uint32_t ifhandle = 0;
  cerrno rc = lum_safely_get_ifhandle(platform().port.port_handle, 0, &ifhandle);
  require(rc == 0, "the controller has no handle: %u", rc);
  rc = lum_get_hw_info(1, &ifhandle, &record);
  require(rc == 0, "what the module says cannot be had: %u", rc);
  const char *vendor = reinterpret_cast<const char *>(&record) + LUM_HW_OUT_VENDOR_NAME;
  require(vendor_in_module() == vendor, "the module of %s is said to be of %s",
          vendor_in_module().c_str(), vendor);
}

void a_replay_is_answered() {
  bring_up();
  newest_batch();
  require(lum_replay_controllers() == 0, "the controllers cannot be replayed");
  require(comes([] { return controllers_told() == 2 * LUM_SUB_PORTS; }),
          "%u of %u replayed controllers are told of", controllers_told() - LUM_SUB_PORTS,
          uint32_t{LUM_SUB_PORTS});
}

void a_port_comes_again_after_its_deletion() {
  bring_up();
  newest_batch();
  const auto [slot, instance, port] = port_cage();
  require(lum_delete_ports(0, slot, instance, 1, &port) == 0, "the port cannot be deleted");
  require(comes([] { return controllers_told() == 0; }), "the controllers are not deleted");
  newest_batch();
  lum_port_props again = platform().port;
  again.port_index = port;
  require(lum_create_ports(1, &again) == 0, "the port cannot be created again");
  require(comes([] { return controllers_told() == LUM_SUB_PORTS; }),
          "the port does not come again after its deletion");
}

void come_up() { bring_up(); }

}  // namespace

std::vector<check> node_checks() {
  return {{"node.polls_the_module", a_module_is_polled},
          {"node.replays_its_controllers", a_replay_is_answered},
          {"node.creates_a_port_again", a_port_comes_again_after_its_deletion},
          {"node.comes_up_after_it_was_killed", come_up, come_up}};
}

}  // namespace conformance
