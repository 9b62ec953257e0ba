// The conformance test of the Linux platform, on the node that the test describes.
//
// usage: conformance_linux NODE_DESCRIPTION [CHECK ...]
#include <cstdio>

#include "lum_conformance.h"
#include "lum_linux.h"

namespace {

const char *node_file = nullptr;

int start(lum_infra_params *params) {
  char error[1024] = "";
  const int rc = lum_linux_start(node_file, error, sizeof error);
  if (rc != 0) std::fprintf(stderr, "%s\n", error);
  params->evm = lum_linux_event_manager();
  params->platform_cbs = lum_linux_callbacks();
  return rc;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) return 2;
  node_file = argv[1];
  lum_conformance_platform platform = {};
  platform.start = start;
  platform.port.rsip = 1 << 16;
  platform.port.port_handle = 0x1100;
  platform.empty_port = 1;
  platform.writable_page = 2;
  platform.writable_offset = 200;
  return lum_conformance_main(argc - 2, argv + 2, &platform);
}
