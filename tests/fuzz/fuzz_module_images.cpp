// Whole module images of any bytes: the module is plugged in, polled, reported on and set, through
// the platform's file backend and the library's polling thread. The node stays up from one image to
// the next.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "lum.h"
#include "lum_linux/platform.h"
#include "stress/seams.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr std::uint32_t slot = 1;
constexpr std::uint32_t rsip = slot << 16;
constexpr std::uint32_t port_handle = 10;

lum_linux::node_description node_in(const fs::path &folder) {
  lum_linux::node_description node;
  node.name = "fuzzed";
  node.state_directory = folder / "state";
  node.trace_directory = folder / "traces";
  node.led_directory = folder / "leds";
  node.api_socket = folder / "api.sock";
  lum_linux::port_description port;
  port.rsip = rsip;
  port.handle = port_handle;
  port.name = "p0";
  port.module.backend = lum_linux::module_backend::file;
  port.module.file = folder / "module.eeprom";
  lum_linux::instance_description instance;
  instance.capacity = 1;
  instance.ports.push_back(port);
  node.slots.push_back({slot, {instance}});
  return node;
}

class shelf {
 public:
  shelf();
  ~shelf() { fs::remove_all(folder_); }
  shelf(const shelf &) = delete;
  shelf &operator=(const shelf &) = delete;

  void hold(const std::uint8_t *bytes, std::size_t size) const;
  void use();

 private:
  fs::path folder_;
  int image_ = -1;
  lum_linux::platform *platform_ = nullptr;  // until the process ends
  std::array<std::uint32_t, LUM_SUB_PORTS> ifhandles_{};
};

shelf::shelf() {
  std::string made = (fs::temp_directory_path() / "lum-fuzz-XXXXXX").string();
  if (mkdtemp(made.data()) == nullptr) abort();
  folder_ = made;
  image_ = ::open((folder_ / "module.eeprom").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  stress::poll_on_demand();
  std::string error;
  platform_ = lum_linux::platform::start(node_in(folder_), error).release();
  if (platform_ == nullptr) abort();
  lum_infra_params params = {};
  params.evm = platform_->evm();
  params.platform_cbs = &platform_->callbacks();
  if (lum_lib_init() != 0 || lum_infra_init(&params) != 0) abort();
  const lum_slot_props props = {1, 1};
  lum_plat_init(0, slot, 0, &props);
  lum_port_props port = {};
  port.rsip = rsip;
  port.port_handle = port_handle;
  if (lum_create_ports(1, &port) != 0 || !platform_->im().wait_idle(60s)) abort();
  const lum_port_node_info *node = lum_get_port_node_from_rsip(rsip);
  for (std::size_t s = 0; s < ifhandles_.size(); ++s) {
    ifhandles_[s] = node->data.sub_port[s].ifhandle;
    if (ifhandles_[s] == 0) abort();
  }
}

// The same file with other bytes, as a module that has been changed for another.
void shelf::hold(const std::uint8_t *bytes, std::size_t size) const {
  if (::ftruncate(image_, 0) != 0) abort();
  if (::pwrite(image_, bytes, size, 0) != static_cast<ssize_t>(size)) abort();
}

void shelf::use() {
  static std::array<lum_hw_info_out, LUM_SUB_PORTS> records;
  lum_update_vendor_info(rsip, 1);
  if (!stress::run_polling_cycle(60s)) abort();
  if (lum_get_hw_info(LUM_SUB_PORTS, ifhandles_.data(), records.data()) != 0) abort();
  lum_update_vendor_info(rsip, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static shelf the_shelf;
  the_shelf.hold(data, size);
  the_shelf.use();
  return 0;
}
