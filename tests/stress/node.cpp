#include "node.h"

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "lum_linux/image.h"

namespace stress {
namespace {

constexpr uint32_t rack = 0;
constexpr uint32_t instance = 0;

std::string plain_module(const port_place &port) {
  const bool is_new = port.port % 2 == 1;
  return "vendor = \"II-VI\"\nserial = \"S" + std::to_string(port.handle) + "\"\nfirmware = [0, " +
         (is_new ? "6" : "5") + "]\nmemory_map = \"" + (is_new ? "new" : "old") +
         "\"\ntemperature = 41.25\nsupply = 3.3\n"
         "[sub_port_0]\npowers_dbm = [-2.85, 2.1, -19.4]\nthresholds = [320, 220]\n"
         "[sub_port_1]\npowers_dbm = [-5.5, 15.0, -20.2]\nthresholds = [260, 160]\n";
}

void make_eeprom(const std::filesystem::path &file, const std::string &text) {
  if (std::filesystem::exists(file)) return;
  std::filesystem::create_directories(file.parent_path());
  const lum_linux::image_result made = lum_linux::compile_module_image(text, "module.toml");
  std::string error = "a wrong module description";
  if (!made.image || !lum_linux::write_module_image(*made.image, file, error)) {
    throw std::runtime_error(error);
  }
}

lum_linux::node_description describe(const node_shape &shape, const std::vector<port_place> &ports,
                                     const std::filesystem::path &folder) {
  lum_linux::node_description node;
  node.name = "stress";
  node.state_directory = folder / "state";
  node.trace_directory = folder / "traces";
  node.led_directory = folder / "leds";
  node.api_socket = folder / "api.sock";
  for (uint32_t s = 0; s < shape.slots; ++s) {
    lum_linux::instance_description the_instance;
    the_instance.capacity = shape.ports_per_slot;
    for (const port_place &port : ports) {
      if (port.slot != shape.first_slot + s) continue;
      lum_linux::port_description description;
      description.number = port.port;
      description.rsip = port.rsip;
      description.handle = port.handle;
      description.name = "p" + std::to_string(port.handle);
      if (shape.leds) description.led = description.name;
      const std::string text = shape.module ? shape.module(port) : plain_module(port);
      if (shape.module_files) {
        description.module.backend = lum_linux::module_backend::file;
        description.module.file = module_file(folder, port, ".eeprom");
        make_eeprom(description.module.file, text);
      } else {
        description.module.backend = lum_linux::module_backend::simulated;
        description.module.file = module_file(folder, port, ".toml");
        write_file(description.module.file, text);
      }
      the_instance.ports.push_back(description);
    }
    node.slots.push_back({shape.first_slot + s, {the_instance}});
  }
  return node;
}

void start_library(const node_shape &shape, lum_linux::platform &platform) {
  const lum_platform_cbs callbacks =
      shape.between ? shape.between(platform.callbacks()) : platform.callbacks();
  lum_infra_params params = {};
  params.evm = platform.evm();
  params.platform_cbs = &callbacks;
  std::strcpy(params.process_name, "stress");
  if (lum_lib_init() != 0 || lum_infra_init(&params) != 0) {
    throw std::runtime_error("the library does not start");
  }
}

template <typename T>
uint32_t load(const T &field) {
  return std::atomic_ref(const_cast<T &>(field)).load(std::memory_order_relaxed);
}

}  // namespace

node::node(const node_shape &shape)
    : shape_(shape), ports_(places_of(shape)), calls_(ports_.size()), creations_(shape.slots) {
  if (shape_.folder.empty()) shape_.folder = own_folder_.emplace().path();
  std::string error;
  platform_ = lum_linux::platform::start(describe(shape_, ports_, shape_.folder), error);
  if (!platform_) throw std::runtime_error(error);
  start_library(shape_, *platform_);
}

std::vector<port_place> places_of(const node_shape &shape) {
  std::vector<port_place> places;
  for (uint32_t slot = shape.first_slot; slot < shape.first_slot + shape.slots; ++slot) {
    for (uint32_t port = 0; port < shape.ports_per_slot; ++port) {
      places.push_back({slot, port, lum_linux::make_rsip(rack, slot, instance, port),
                        0x1000 + (slot << 8) + port});
    }
  }
  return places;
}

std::filesystem::path module_file(const std::filesystem::path &folder, const port_place &port,
                                  const std::string &suffix) {
  return folder / "modules" / ("p" + std::to_string(port.handle) + suffix);
}

cerrno node::create_slot(uint32_t slot) {
  const std::lock_guard lock(creation_in(slot));
  const calls_under_way under_way(*this, &port_calls::creations, slot, numbers_in(slot));
  const lum_slot_props slot_props = {1, shape_.ports_per_slot};
  if (const cerrno rc = lum_plat_init(rack, slot, instance, &slot_props); rc != 0) return rc;
  std::vector<lum_port_props> props;
  for (const port_place &port : ports_) {
    if (port.slot != slot) continue;
    lum_port_props record = {};
    record.rsip = port.rsip;
    record.port_index = port.port;
    record.port_handle = port.handle;
    props.push_back(record);
  }
  return lum_create_ports(static_cast<uint32_t>(props.size()), props.data());
}

void node::enter_without_handle(const port_place &port) {
  const std::lock_guard lock(creation_in(port.slot));
  const calls_under_way under_way(*this, &port_calls::creations, port.slot, {port.port});
  lum_platform_ctx_init(rack, port.slot, instance, 1, &port.port);
}

cerrno node::delete_slot(uint32_t slot) { return delete_ports(slot, numbers_in(slot)); }

cerrno node::delete_ports(uint32_t slot, const std::vector<uint32_t> &numbers) {
  cerrno rc = 0;
  std::thread([&] { rc = delete_ports_here(slot, numbers); }).join();
  return rc;
}

cerrno node::delete_ports_here(uint32_t slot, const std::vector<uint32_t> &numbers) {
  const calls_under_way under_way(*this, &port_calls::deletions, slot, numbers);
  return lum_delete_ports(rack, slot, instance, static_cast<uint32_t>(numbers.size()),
                          numbers.data());
}

void node::create_all() {
  for (uint32_t s = 0; s < shape_.slots; ++s) create_slot(shape_.first_slot + s);
}

void node::delete_all() {
  for (uint32_t s = 0; s < shape_.slots; ++s) delete_slot(shape_.first_slot + s);
}

std::size_t node::index_of(uint32_t rsip) const {
  for (std::size_t i = 0; i < ports_.size(); ++i) {
    if (ports_[i].rsip == rsip) return i;
  }
  throw std::out_of_range("no port of the node");
}

std::vector<uint32_t> node::numbers_in(uint32_t slot) const {
  std::vector<uint32_t> numbers;
  for (const port_place &port : ports_) {
    if (port.slot == slot) numbers.push_back(port.port);
  }
  return numbers;
}

node::calls_under_way::calls_under_way(node &the_node, call_count port_calls::*kind, uint32_t slot,
                                       const std::vector<uint32_t> &numbers) {
  for (const uint32_t number : numbers) {
    const uint32_t rsip = lum_linux::make_rsip(rack, slot, instance, number);
    counts_.push_back(&(the_node.calls_[the_node.index_of(rsip)].*kind));
  }
  for (call_count *count : counts_) count->begin();
}

node::calls_under_way::~calls_under_way() {
  for (call_count *count : counts_) count->end();
}

std::string controller_name(const port_place &port, uint32_t sub_port) {
  char name[LUM_IFNAME_SIZE];
  lum_construct_if_name(LUM_IFTYPE_OTS, rack, port.slot, instance, port.port, 0, sub_port, name);
  return name;
}

uint32_t ifhandle_of(const port_place &port, uint32_t sub_port) {
  uint32_t ifhandle = 0;
  lum_safely_get_ifhandle(port.handle, sub_port, &ifhandle);
  return ifhandle;
}

const lum_port_data *data_of(const port_place &port) {
  lum_port_data *data = nullptr;
  return lum_safely_get_port_info(controller_name(port, 0).c_str(), &data) == 0 ? data : nullptr;
}

uint32_t word(const uint32_t &field) { return load(field); }
uint32_t word(const uint8_t &field) { return load(field); }
uint32_t word(const uint16_t &field) { return load(field); }

uint32_t ports_in_database() {
  uint32_t count = 0;
  lum_ports_db_walk_via_rsip(
      [](void *, void *context) {
        ++*static_cast<uint32_t *>(context);
        return 0;
      },
      &count);
  return count;
}

}  // namespace stress
