// The conformance test of this platform: docs/conformance.md.
//
//   conformance             every check
//   conformance trees       those of a group, or one by its whole name
//   conformance --list      their names
#include "lum_conformance.h"
#include "own_platform.h"

namespace {

int start(lum_infra_params *params) {
  static const lum_platform_cbs table = callbacks();
  params->evm = the_event_manager;
  params->platform_cbs = &table;
  return 0;
}

lum_conformance_platform describe() {
  lum_conformance_platform platform = {};
  platform.start = start;
  platform.port.rsip = the_slot << 16 | the_port;
  platform.port.port_index = the_port;
  platform.port.port_handle = the_port_handle;
  platform.empty_port = the_port + 1;
  platform.writable_page = LUM_CONFORMANCE_NONE;  // this module cannot be written
  return platform;
}

}  // namespace

int main(int argc, char **argv) {
  const lum_conformance_platform platform = describe();
  return lum_conformance_main(argc - 1, argv + 1, &platform);
}
