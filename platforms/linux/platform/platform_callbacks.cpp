// The callback table: finds the platform, and hands the call to the part that answers it.
#include "platform/platform_core.h"

#include <cerrno>
#include <cstring>

#include "bounded_copy.h"
#include "services/immortal.h"

namespace lum_linux {
namespace {

// The library's threads go on while the process ends, so this is never destroyed.
struct current_platform {
  std::mutex mutex;
  bool reserved = false;
  std::shared_ptr<platform::core> core;
};

current_platform &current() {
  static immortal<current_platform> instance;
  return *instance;
}

std::shared_ptr<platform::core> find_platform() {
  const std::lock_guard lock(current().mutex);
  return current().core;
}

// Calls `answer` with the platform; without one the code is that of a device that is gone.
template <typename Answer>
cerrno with_platform(Answer answer) noexcept try {
  const auto core = find_platform();
  return core ? answer(*core) : ENODEV;
} catch (...) {
  return ENOMEM;
}

cerrno im_req_by_name(const char *const *names, uint16_t iftype, const void *payload,
                      uint32_t payload_count, uint32_t operation, void *context, uint32_t count,
                      imca_completion complete) {
  return with_platform([&](platform::core &core) {
    return core.im->request_by_name(names, iftype, payload, payload_count, operation, context,
                                    count, complete);
  });
}

cerrno im_update_req_by_ifhandle(const uint32_t *ifhandles, uint32_t iftype, const void *payload,
                                 uint32_t payload_size, uint32_t operation, void *context,
                                 uint32_t count, imca_completion complete) {
  return with_platform([&](platform::core &core) {
    return core.im->update_by_handle(ifhandles, iftype, payload, payload_size, operation, context,
                                     count, complete);
  });
}

cerrno ctrl_op_notify(uint32_t operation, uint32_t count, const uint32_t *rsips,
                      const uint32_t *sub_ports, const uint32_t *ifhandles) {
  return with_platform([&](platform::core &core) -> cerrno {
    if (!rsips || !sub_ports || !ifhandles || operation > 1) return EINVAL;
    if (operation == 0) {
      // Of a deletion the handles alone stand at the batch's own positions.
      core.watch.deleted({ifhandles, count});
      return 0;
    }
    std::vector<controller_event> controllers(count);
    for (uint32_t i = 0; i < count; ++i) controllers[i] = {rsips[i], sub_ports[i], ifhandles[i]};
    core.watch.created(controllers);
    return 0;
  });
}

cerrno ctrl_update_notify(uint32_t count, const uint32_t *rsips) {
  return with_platform([&](platform::core &core) -> cerrno {
    if (!rsips) return EINVAL;
    core.watch.updated({rsips, count});
    return 0;
  });
}

cerrno ifname_from_ifh(uint32_t ifhandle, char *name) {
  return with_platform([&](platform::core &core) -> cerrno {
    if (!name) return EINVAL;
    const auto found = core.im->name_of(ifhandle);
    if (!found) return ENOENT;
    return strncpy_s(name, LUM_DEVID_NAME_SIZE, found->c_str(), LUM_DEVID_NAME_SIZE - 1);
  });
}

cerrno led_get_state(uint32_t rsip, uint32_t, uint32_t *state) {
  return with_platform([&](platform::core &core) -> cerrno {
    return state ? core.leds->get_state(rsip, state) : EINVAL;
  });
}

cerrno led_set_state(uint32_t rsip, uint32_t, uint32_t state) {
  return with_platform([&](platform::core &core) { return core.leds->set_state(rsip, state); });
}

cerrno fw_upgrade_status(uint32_t rsip, uint32_t *status) {
  return with_platform([&](platform::core &core) -> cerrno {
    if (!status) return EINVAL;
    const auto found = core.fw_upgrade.find(rsip);
    *status = found == core.fw_upgrade.end() ? 0 : found->second.load();
    return found == core.fw_upgrade.end() ? EINVAL : 0;
  });
}

cerrno i2c_read_byte(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                     uint32_t offset, uint8_t *value) {
  return with_platform([&](platform::core &core) {
    return core.modules->read_byte(slot, instance, port, page, offset, value);
  });
}

cerrno i2c_read_block(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                      uint32_t offset, int32_t length, uint8_t *buffer) {
  return with_platform([&](platform::core &core) {
    return core.modules->read_block(slot, instance, port, page, offset, length, buffer);
  });
}

cerrno i2c_write_byte(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                      uint32_t offset, uint8_t value) {
  return with_platform([&](platform::core &core) {
    return core.modules->write_byte(slot, instance, port, page, offset, value);
  });
}

constexpr lum_platform_cbs table = {im_req_by_name,  im_update_req_by_ifhandle,
                                    ctrl_op_notify,  ctrl_update_notify,
                                    ifname_from_ifh, led_get_state,
                                    led_set_state,   fw_upgrade_status,
                                    i2c_read_byte,   i2c_read_block,
                                    i2c_write_byte,  nullptr,
                                    nullptr};

}  // namespace

const lum_platform_cbs &platform_callbacks() { return table; }

bool reserve_platform() {
  const std::lock_guard lock(current().mutex);
  return !std::exchange(current().reserved, true);
}

void publish_platform(const std::shared_ptr<platform::core> &core) {
  const std::lock_guard lock(current().mutex);
  current().core = core;
}

void withdraw_platform() {
  std::shared_ptr<platform::core> released;  // goes once the lock is free again
  const std::lock_guard lock(current().mutex);
  released.swap(current().core);
}

void give_up_platform() {
  const std::lock_guard lock(current().mutex);
  current().reserved = false;
}

}  // namespace lum_linux
