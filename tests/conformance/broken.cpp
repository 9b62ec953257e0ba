// The conformance test of a platform that does one thing wrong.
#include "broken.h"

#include "lum_conformance.h"
#include "own_platform.h"

static int start(lum_infra_params *params) {
  static const lum_platform_cbs table = broken_callbacks();
  params->evm = the_event_manager;
  params->platform_cbs = &table;
  return 0;
}

int main(int argc, char **argv) {
  lum_conformance_platform platform = {};
  platform.start = start;
  platform.port.rsip = the_slot << 16 | the_port;
  platform.port.port_handle = the_port_handle;
  platform.empty_port = the_port + 1;
  platform.writable_page = LUM_CONFORMANCE_NONE;
  return lum_conformance_main(argc - 1, argv + 1, &platform);
}
