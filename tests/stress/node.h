// A node of simulated or file-backed modules with the library started on it. There is one in a
// process.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "lum.h"
#include "lum_linux/modules.h"
#include "lum_linux/platform.h"
#include "port_calls.h"
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
  // What the library gets for the platform's callbacks; themselves unless given.
  std::function<lum_platform_cbs(const lum_platform_cbs &)> between;
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

  // All ports of a slot, or some. Each deletion has a thread of its own: it keeps the ports'
  // mutexes, of which ThreadSanitizer follows some 60 of one thread, even when the ports are gone.
  cerrno create_slot(uint32_t slot);
  cerrno delete_slot(uint32_t slot);
  cerrno delete_ports(uint32_t slot, const std::vector<uint32_t> &numbers);
  void create_all();
  void delete_all();
  // A deletion by the calling thread.
  cerrno delete_ports_here(uint32_t slot, const std::vector<uint32_t> &numbers);
  // Enters a port into the database that gets its handle, and its mutex anew, from its creation.
  void enter_without_handle(const port_place &port);
  bool wait_idle() { return im().wait_idle(std::chrono::seconds(60)); }

  // A port's place among ports(), and the calls above that have named it.
  std::size_t index_of(uint32_t rsip) const;
  const port_calls &calls_of(std::size_t index) const { return calls_[index]; }
  // Held over each creation in a slot: it may make the mutexes of ports anew, which nobody must
  // then be trying.
  std::mutex &creation_in(uint32_t slot) { return creations_[slot - shape_.first_slot]; }

 private:
  // Counts a call that names ports in while it is made.
  class calls_under_way {
   public:
    calls_under_way(node &the_node, call_count port_calls::*kind, uint32_t slot,
                    const std::vector<uint32_t> &numbers);
    ~calls_under_way();
    calls_under_way(const calls_under_way &) = delete;
    calls_under_way &operator=(const calls_under_way &) = delete;

   private:
    std::vector<call_count *> counts_;
  };
  std::vector<uint32_t> numbers_in(uint32_t slot) const;

  node_shape shape_;
  std::vector<port_place> ports_;
  std::vector<port_calls> calls_;
  std::vector<std::mutex> creations_;
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
