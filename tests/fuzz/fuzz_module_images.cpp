// Whole module images of any bytes: the module is plugged in, polled, reported on and set, through
// the platform's file backend and the library's polling thread. Setting it touches no byte of it
// but those of the settings. The node stays up from one image to the next.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "lum.h"
#include "lum_linux/platform.h"
#include "stress/seams.h"
#include "test_folder.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr std::uint32_t slot = 1;
constexpr std::uint32_t rsip = slot << 16;
constexpr std::uint32_t port_handle = 10;
constexpr std::uint64_t all_settings =
    LUM_CHANGE_THRESHOLD | LUM_CHANGE_P2_SETTING | LUM_CHANGE_MODE | LUM_CHANGE_SETTINGS;
constexpr std::array<std::size_t, 7> fields = {
    LUM_HW_IN_THRESHOLD, LUM_HW_IN_P2_SETTING, LUM_HW_IN_MODE,       LUM_HW_IN_SETTING_A,
    LUM_HW_IN_SUB1_FLAG, LUM_HW_IN_SETTING_B,  LUM_HW_IN_ENABLE_FLAG};

// Where the settings of both sub-ports are: offsets in page 2, in page 3, and in page 1 where a
// module of the new memory map has those of page 3.
struct page_range {
  std::size_t page, first, last;
};
constexpr std::array<page_range, 10> settings_of_module = {{{2, 144, 147},
                                                            {2, 152, 155},
                                                            {2, 178, 179},
                                                            {2, 194, 195},
                                                            {3, 128, 137},
                                                            {3, 146, 147},
                                                            {3, 150, 150},
                                                            {1, 192, 201},
                                                            {1, 210, 211},
                                                            {1, 214, 214}}};

bool is_of_settings(std::size_t position) {
  constexpr std::size_t page_bytes = 128;
  if (position < 2 * page_bytes) return false;
  const std::size_t page = position / page_bytes - 1;
  const std::size_t offset = position % page_bytes + page_bytes;
  return std::any_of(settings_of_module.begin(), settings_of_module.end(),
                     [&](const page_range &range) {
                       return range.page == page && range.first <= offset && offset <= range.last;
                     });
}

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

  void hold(const std::string &image) const;
  void use(const std::string &image);

 private:
  void set(const std::string &image);

  test_folder folder_{folder_place::memory};
  int image_ = -1;
  lum_linux::platform *platform_ = nullptr;  // until the process ends
  std::array<std::uint32_t, LUM_SUB_PORTS> ifhandles_{};
};

shelf::shelf() {
  image_ = ::open((folder_ / "module.eeprom").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  stress::poll_on_demand();
  stress::pause_for_nobody();
  std::string error;
  platform_ = lum_linux::platform::start(node_in(folder_.path()), error).release();
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
void shelf::hold(const std::string &image) const {
  if (::ftruncate(image_, 0) != 0) abort();
  if (::pwrite(image_, image.data(), image.size(), 0) != static_cast<ssize_t>(image.size())) {
    abort();
  }
}

void shelf::use(const std::string &image) {
  static std::array<lum_hw_info_out, LUM_SUB_PORTS> records;
  lum_update_vendor_info(rsip, 1);
  if (!stress::run_polling_cycle(60s)) abort();
  if (lum_get_hw_info(LUM_SUB_PORTS, ifhandles_.data(), records.data()) != 0) abort();
  set(image);
  lum_update_vendor_info(rsip, 0);
}

// Words from all over the image as values.
void shelf::set(const std::string &image) {
  std::array<lum_hw_info_in, LUM_SUB_PORTS> records = {};
  std::array<std::uint64_t, LUM_SUB_PORTS> changed = {};
  changed.fill(all_settings);
  std::size_t from = 0;
  for (lum_hw_info_in &record : records) {
    for (const std::size_t field : fields) {
      std::uint32_t value = 0;
      if (from + sizeof value <= image.size()) std::memcpy(&value, &image[from], sizeof value);
      std::memcpy(reinterpret_cast<char *>(&record) + field, &value, sizeof value);
      from += image.size() / (LUM_SUB_PORTS * fields.size());
    }
  }
  if (lum_set_hw_info(LUM_SUB_PORTS, ifhandles_.data(), records.data(), changed.data()) != 0) {
    abort();
  }
  const std::string now = contents(folder_ / "module.eeprom");
  if (now.size() != image.size()) abort();
  for (std::size_t at = 0; at < image.size(); ++at) {
    if (now[at] != image[at] && !is_of_settings(at)) abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static shelf the_shelf;
  const std::string image(reinterpret_cast<const char *>(data), size);
  the_shelf.hold(image);
  the_shelf.use(image);
  return 0;
}
