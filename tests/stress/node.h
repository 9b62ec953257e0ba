// A node of simulated or file-backed modules with the library started on it. There is one in a
// process.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lum.h"
#include "lum_linux/modules.h"
#include "lum_linux/platform.h"
#include "work_folder.h"

namespace stress {

struct port_place {
  uint32_t slot;
  uint32_t port;
  uint32_t rsip;
  uint32_t handle;
};

// Where the module of a port is kept, below the node's folder.
std::filesystem::path module_file(const std::filesystem::path &folder, const port_place &port,
                                  const std::string &suffix);

struct node_shape {
  uint32_t first_slot = 1;
  uint32_t slots = 4;
  uint32_t ports_per_slot = 8;
  bool leds = true;
  bool module_files = false;     // modules are eeprom files, made where they are not there yet
  std::filesystem::path folder;  // of everything the node keeps; one of its own unless given
  // The description of a port's module; a plain one unless given.
  std::function<std::string(const port_place &)> module;
};

class node {
 public:
  // Throws when something does not start.
  explicit node(const node_shape &shape);

  lum_linux::platform &platform() { return *platform_; }
  lum_linux::interface_manager &im() { return platform_->im(); }
  lum_linux::modules &modules() { return platform_->modules(); }
  const std::vector<port_place> &ports() const { return ports_; }
  uint32_t first_slot() const { return shape_.first_slot; }
  uint32_t slots() const { return shape_.slots; }
  uint32_t ports_per_slot() const { return shape_.ports_per_slot; }

  // All ports of a slot.
  cerrno create_slot(uint32_t slot) const;
  cerrno delete_slot(uint32_t slot) const;
  void create_all() const;
  void delete_all() const;
  bool wait_idle() { return im().wait_idle(std::chrono::seconds(60)); }

 private:
  node_shape shape_;
  std::vector<port_place> ports_;
  std::optional<work_folder> own_folder_;
  std::unique_ptr<lum_linux::platform> platform_;
};

// The ports of a shape, in rsip order.
std::vector<port_place> places_of(const node_shape &shape);

// The name of a port's controller, and the handle the library has for it, 0 when it has none.
std::string controller_name(const port_place &port, uint32_t sub_port);
uint32_t ifhandle_of(const port_place &port, uint32_t sub_port);

// The port's data for a moment in which nobody deletes it; null when the port is not there.
const lum_port_data *data_of(const port_place &port);

// A word of them that other threads may be writing.
uint32_t word(const uint32_t &field);
uint32_t word(const uint8_t &field);
uint32_t word(const uint16_t &field);

// How many ports the database holds.
uint32_t ports_in_database();

}  // namespace stress
