#include "lum_linux.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "lum_linux/platform.h"
#include "platform/platform_core.h"
#include "services/immortal.h"

namespace {

// What lum_linux_start makes of a description for callers in C.
struct running_node {
  std::unique_ptr<lum_linux::platform> platform;
  std::vector<std::vector<lum_port_props>> ports;
  std::vector<lum_linux_slot_info> slots;
};

// Threads of the driver may call while the process ends, so this is never destroyed.
struct c_platform {
  std::mutex mutex;
  std::shared_ptr<running_node> node;
};

c_platform &state() {
  static lum_linux::immortal<c_platform> instance;
  return *instance;
}

std::shared_ptr<running_node> running() {
  const std::lock_guard lock(state().mutex);
  return state().node;
}

void fill_slots(running_node &node) {
  const lum_linux::node_description &description = node.platform->node();
  for (const auto &slot : description.slots) {
    for (const auto &instance : slot.instances) {
      std::vector<lum_port_props> ports;
      for (const auto &port : instance.ports) {
        lum_port_props props{};
        props.rsip = port.rsip;
        props.port_index = port.number;
        props.port_handle = port.handle;
        ports.push_back(props);
      }
      node.ports.push_back(std::move(ports));
      lum_linux_slot_info info{};
      info.rack = description.rack;
      info.slot = slot.number;
      info.instance = instance.number;
      info.props = {1, instance.capacity};
      info.port_count = static_cast<uint32_t>(node.ports.back().size());
      info.ports = node.ports.back().data();
      node.slots.push_back(info);
    }
  }
}

int start(const char *node_file, std::string &error) {
  if (!node_file) {
    error = "no node description was named";
    return EINVAL;
  }
  const std::lock_guard lock(state().mutex);
  if (state().node) {
    error = "the platform runs already";
    return EBUSY;
  }
  lum_linux::description_result description = lum_linux::read_node_description(node_file);
  for (const auto &problem : description.problems) error += to_string(problem) + "\n";
  if (!description.node) return EINVAL;
  auto node = std::make_shared<running_node>();
  node->platform = lum_linux::platform::start(*description.node, error);
  if (!node->platform) return EIO;
  fill_slots(*node);
  state().node = std::move(node);
  return 0;
}

// Calls `answer` with what is running; `otherwise` is the result when nothing is or on a failure.
template <typename Result, typename Answer>
Result with_node(Result otherwise, Answer answer) noexcept try {
  const auto node = running();
  return node ? answer(*node) : otherwise;
} catch (...) {
  return otherwise;
}

}  // namespace

int lum_linux_start(const char *node_file, char *error, size_t error_size) try {
  std::string text;
  const int code = start(node_file, text);
  if (error && error_size > 0) std::snprintf(error, error_size, "%s", text.c_str());
  return code;
} catch (...) {
  if (error && error_size > 0) std::snprintf(error, error_size, "out of memory");
  return ENOMEM;
}

const lum_platform_cbs *lum_linux_callbacks(void) { return &lum_linux::platform_callbacks(); }

event_manager lum_linux_event_manager(void) {
  return with_node(event_manager{0}, [](running_node &node) { return node.platform->evm(); });
}

const char *lum_linux_node_name(void) {
  return with_node("", [](running_node &node) { return node.platform->node().name.c_str(); });
}

uint32_t lum_linux_slot_count(void) {
  return with_node(uint32_t{0},
                   [](running_node &node) { return static_cast<uint32_t>(node.slots.size()); });
}

int lum_linux_slot(uint32_t index, lum_linux_slot_info *info) {
  return with_node(EINVAL, [&](running_node &node) {
    if (!info || index >= node.slots.size()) return EINVAL;
    *info = node.slots[index];
    return 0;
  });
}

const char *lum_linux_port_name(uint32_t rsip) {
  return with_node(static_cast<const char *>(nullptr), [&](running_node &node) {
    const auto *port = node.platform->node().find(rsip);
    return port ? port->name.c_str() : nullptr;
  });
}

int lum_linux_wait_created(uint32_t count, uint32_t timeout_ms) {
  return with_node(ENODEV, [&](running_node &node) {
    const bool created = node.platform->wait_created(count, std::chrono::milliseconds(timeout_ms));
    return created ? 0 : ETIMEDOUT;
  });
}

int lum_linux_set_fw_upgrade(uint32_t rsip, uint32_t status) {
  return with_node(ENODEV, [&](running_node &node) {
    return node.platform->set_fw_upgrade(rsip, status) ? 0 : EINVAL;
  });
}

int lum_linux_stop(void) try {
  std::shared_ptr<running_node> node;
  {
    const std::lock_guard lock(state().mutex);
    node.swap(state().node);
  }
  if (!node) return ENODEV;
  return node->platform->stop() ? 0 : ETIMEDOUT;
} catch (...) {
  return EIO;
}
