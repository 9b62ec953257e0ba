#include "lum_linux/modules.h"

#include <algorithm>
#include <new>
#include <utility>

#include "modules/look_round.h"
#include "modules/module_entry.h"

namespace lum_linux {
namespace {

constexpr uint32_t without_rack(uint32_t rsip) { return rsip & 0x00FFFFFF; }

// Makes the simulated module of a port; false with `error` when its description is wrong.
bool place_simulated(const port_description &port, module_placement &placement,
                     std::string &error) {
  const std::filesystem::path &file = port.module.file;
  placement.description = file;
  std::error_code code;
  if (std::filesystem::status(file, code).type() == std::filesystem::file_type::not_found) {
    placement.memory = make_simulated_memory(file.native());
    return true;
  }
  const image_result result = read_module_image(file);
  if (!result.image) {
    for (const auto &problem : result.problems) {
      if (!error.empty()) error += '\n';
      error += to_string(problem);
    }
    return false;
  }
  placement.faults = result.image->faults;
  placement.memory = make_simulated_memory(file.native(), *result.image);
  return true;
}

bool place(const port_description &port, module_placement &placement, std::string &error) {
  placement.rsip = port.rsip;
  placement.backend = port.module.backend;
  placement.presence = port.module.presence;
  placement.presence_value = port.module.presence_value;
  placement.reset = port.module.reset;
  placement.low_power = port.module.low_power;
  switch (port.module.backend) {
    case module_backend::i2c_dev:
      placement.memory = make_i2c_memory(port.module.i2c_bus, port.module.i2c_address,
                                         real_i2c_kernel(), port.module.i2c_bank);
      return true;
    case module_backend::simulated:
      return place_simulated(port, placement, error);
    case module_backend::file:
      break;
  }
  placement.memory = make_file_memory(port.module.file);
  return true;
}

// Keeps exceptions, of which only a lack of memory can come, out of the caller.
template <typename Transfer>
cerrno guarded(Transfer transfer) {
  try {
    return transfer();
  } catch (const std::bad_alloc &) {
    return module_no_memory;
  } catch (...) {
    return module_failing;
  }
}

}  // namespace

std::unique_ptr<modules> modules::open(const node_description &node, std::string &error) {
  std::vector<module_placement> placements;
  bool is_good = true;
  for (const port_description *port : node.ports()) {
    module_placement placement;
    is_good = place(*port, placement, error) && is_good;
    placements.push_back(std::move(placement));
  }
  return is_good ? std::make_unique<modules>(std::move(placements)) : nullptr;
}

modules::modules(std::vector<module_placement> placements) {
  for (module_placement &placement : placements) {
    const uint32_t rsip = placement.rsip;
    auto entry = std::make_shared<module_entry>(std::move(placement));
    entries_.insert_or_assign(without_rack(rsip), cage{rsip, std::move(entry)});
  }
  // One that gets round, and one for each module that may hang.
  lookers_ = std::make_unique<lanes>("lum_presence", lane_limits{entries_.size() + 1, 1});
  look();
}

modules::~modules() { stop(); }

cerrno modules::read_byte(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                          uint32_t offset, uint8_t *value) {
  module_entry *entry = find(slot, instance, port);
  if (!entry || !value) return module_bad_argument;
  return guarded([&] {
    return entry->transfer(transfer_kind::read_byte, page, offset, {value, 1});
  });
}

cerrno modules::read_block(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                           uint32_t offset, int32_t length, uint8_t *buffer) {
  module_entry *entry = find(slot, instance, port);
  if (!entry || !buffer || length < 1) return module_bad_argument;
  const std::span<uint8_t> out(buffer, static_cast<std::size_t>(length));
  return guarded([&] { return entry->transfer(transfer_kind::read_block, page, offset, out); });
}

cerrno modules::write_byte(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                           uint32_t offset, uint8_t value) {
  module_entry *entry = find(slot, instance, port);
  if (!entry) return module_bad_argument;
  return guarded([&] {
    return entry->transfer(transfer_kind::write_byte, page, offset, {&value, 1});
  });
}

void modules::look() const {
  const auto round = std::make_shared<look_round>();
  for (const auto &[key, found] : entries_) {
    if (found.entry->is_being_looked_at() || found.entry->unasked_for().count() > 0) continue;
    round->looks.push_back([entry = found.entry] { entry->look(); });
  }
  round->run(*lookers_);
}

std::chrono::milliseconds modules::unasked_for() const {
  auto least = std::chrono::milliseconds::max();
  for (const auto &[key, found] : entries_) least = std::min(least, found.entry->unasked_for());
  return least;
}

std::vector<uint32_t> modules::ports() const {
  std::vector<uint32_t> result;
  for (const auto &[key, found] : entries_) result.push_back(found.rsip);
  return result;
}

bool modules::present(uint32_t rsip) const {
  module_entry *entry = find(rsip);
  return entry && entry->status().present;
}

std::optional<module_status> modules::status(uint32_t rsip) const {
  module_entry *entry = find(rsip);
  if (!entry) return {};
  return entry->status();
}

module_glimpse modules::glimpse(uint32_t rsip) const {
  module_entry *entry = find(rsip);
  return entry ? entry->glimpse() : module_glimpse();
}

cerrno modules::set_faults(uint32_t rsip, const fault_script &faults) {
  module_entry *entry = find(rsip);
  if (!entry) return module_bad_argument;
  entry->set_faults(faults);
  return module_ok;
}

cerrno modules::release(uint32_t rsip) {
  module_entry *entry = find(rsip);
  if (!entry) return module_bad_argument;
  entry->release();
  return module_ok;
}

cerrno modules::remove(uint32_t rsip) {
  module_entry *entry = find(rsip);
  if (!entry) return module_bad_argument;
  entry->remove();
  return module_ok;
}

cerrno modules::insert(uint32_t rsip) {
  module_entry *entry = find(rsip);
  return entry ? guarded([&] { return entry->insert(); }) : module_bad_argument;
}

cerrno modules::insert(uint32_t rsip, const std::filesystem::path &description,
                       std::string &error) {
  error.clear();
  module_entry *entry = find(rsip);
  if (!entry) {
    error = "no such port";
    return module_bad_argument;
  }
  return guarded([&] { return entry->insert(description, error); });
}

cerrno modules::set_line(uint32_t rsip, module_line line, bool on) {
  module_entry *entry = find(rsip);
  return entry ? guarded([&] { return entry->set_line(line, on); }) : module_bad_argument;
}

cerrno modules::peek(uint32_t rsip, uint32_t page, uint32_t offset, std::span<uint8_t> out,
                     std::string *why) const {
  module_entry *entry = find(rsip);
  return entry ? guarded([&] { return entry->peek(page, offset, out, why); }) : module_bad_argument;
}

cerrno modules::poke(uint32_t rsip, uint32_t page, uint32_t offset, uint8_t value) {
  module_entry *entry = find(rsip);
  return entry ? guarded([&] { return entry->poke(page, offset, value); }) : module_bad_argument;
}

void modules::stop() {
  lookers_->stop();
  for (const auto &[key, found] : entries_) found.entry->stop();
}

module_entry *modules::find(uint32_t rsip) const {
  const auto found = entries_.find(without_rack(rsip));
  return found == entries_.end() ? nullptr : found->second.entry.get();
}

module_entry *modules::find(uint32_t slot, uint32_t instance, uint32_t port) const {
  if (slot > 255 || instance > 255 || port > 255) return nullptr;
  return find(make_rsip(0, slot, instance, port));
}

}  // namespace lum_linux
