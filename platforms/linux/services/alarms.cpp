// The alarm and counter store: the stored and the published alarm bitmap of every interface, and
// counters of what happened to them.
#include "lum_linux/alarms.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <limits>
#include <map>
#include <mutex>

#include "services/immortal.h"
#include "services/store_clock.h"

namespace {

using namespace lum_linux;

constexpr size_t longest_name = 63;

// Lives until the process ends, for the library's threads use it until then.
struct ptah_store {
  std::mutex lock;
  std::map<uint32_t, ptah_interface> ports;
  uint64_t last_handle = 0;

  // Runs `use` on the interface's port with the lock held, or returns 2 when there is none.
  template <typename Use>
  cerrno with_port(uint32_t ifhandle, Use use) {
    try {
      const std::lock_guard hold(lock);
      const auto found = ports.find(ifhandle);
      if (found == ports.end()) return ENOENT;
      use(found->second);
      return 0;
    } catch (const std::exception &) {
      return ENOMEM;
    }
  }
};

ptah_store &store() {
  static immortal<ptah_store> the_store;
  return *the_store;
}

void count(uint32_t &counter) {
  if (counter != std::numeric_limits<uint32_t>::max()) ++counter;
}

void change_bitmap(ptah_interface &port, uint64_t bitmap) {
  if (bitmap == port.all.bitmap) return;
  const uint64_t raised = bitmap & ~port.all.bitmap;
  port.all.bitmap = bitmap;
  port.changed = store_stamp_now();
  count(port.all.values[ptah_bitmap_changes]);
  for (size_t bit = 0; bit < ptah_counted_bits; ++bit) {
    if ((raised >> bit & 1) != 0) count(port.all.values[ptah_first_raise + bit]);
  }
}

}  // namespace

cerrno ptah_al_port_create(uint32_t iftype, uint32_t ifhandle, const char *name, uint32_t flags,
                           uint32_t enabled, uint64_t *handle_out) {
  if (ifhandle == 0 || name == nullptr || handle_out == nullptr || flags != 0) return EINVAL;
  if (strnlen(name, longest_name + 1) > longest_name) return EINVAL;
  try {
    const std::lock_guard hold(store().lock);
    const auto [port, added] = store().ports.try_emplace(ifhandle);
    if (!added) return EEXIST;
    ptah_interface &created = port->second;
    created.ifhandle = ifhandle;
    created.iftype = iftype;
    created.name = name;
    created.enabled = enabled != 0;
    created.handle = ++store().last_handle;
    *handle_out = created.handle;
    return 0;
  } catch (const std::exception &) {
    return ENOMEM;
  }
}

cerrno ptah_al_port_delete(uint32_t ifhandle) {
  const std::lock_guard hold(store().lock);
  return store().ports.erase(ifhandle) == 1 ? 0 : ENOENT;
}

// The bitmap is no statistic and stays.
cerrno ptah_al_port_clear_stats(uint32_t ifhandle) {
  return store().with_port(ifhandle, [](ptah_interface &port) {
    std::memset(port.all.values, 0, sizeof port.all.values);
    port.cleared = store_stamp_now();
  });
}

// A bitmap that is not valid changes nothing.
cerrno ptah_al_store_bmap(uint32_t ifhandle, uint64_t bitmap, uint32_t valid) {
  return store().with_port(ifhandle, [&](ptah_interface &port) {
    if (valid != 0) change_bitmap(port, bitmap);
  });
}

cerrno ptah_al_send_bmap_counter(uint32_t ifhandle) {
  return store().with_port(ifhandle, [](ptah_interface &port) {
    port.published = port.all.bitmap;
    count(port.all.values[ptah_publishes]);
  });
}

cerrno ptah_al_get_all_from_ptah(uint32_t ifhandle, ptah_al_all *all) {
  if (all == nullptr) return EINVAL;
  return store().with_port(ifhandle, [&](ptah_interface &port) { *all = port.all; });
}

namespace lum_linux {

std::vector<ptah_interface> ptah_interfaces() {
  const std::lock_guard hold(store().lock);
  std::vector<ptah_interface> all;
  for (const auto &[ifhandle, port] : store().ports) all.push_back(port);
  return all;
}

std::optional<ptah_interface> ptah_find(uint32_t ifhandle) {
  const std::lock_guard hold(store().lock);
  const auto found = store().ports.find(ifhandle);
  if (found == store().ports.end()) return std::nullopt;
  return found->second;
}

uint64_t ptah_bitmap(uint32_t ifhandle) {
  const std::lock_guard hold(store().lock);
  const auto found = store().ports.find(ifhandle);
  return found == store().ports.end() ? 0 : found->second.all.bitmap;
}

void ptah_forget_all() {
  const std::lock_guard hold(store().lock);
  store().ports.clear();
}

}  // namespace lum_linux
