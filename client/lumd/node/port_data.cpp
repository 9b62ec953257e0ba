#include "node/port_data.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <new>
#include <utility>

namespace lumd {
namespace {

// The library's threads change single words; so single words are what is read.
template <typename Word>
void copy_words(void *destination, const void *source, std::size_t size) {
  auto *to = static_cast<Word *>(destination);
  const auto *from = static_cast<const Word *>(source);
  for (std::size_t i = 0; i < size / sizeof(Word); ++i) {
    to[i] = __atomic_load_n(from + i, __ATOMIC_RELAXED);
  }
}

port_copy copy_node(const lum_port_node_info &node) {
  static_assert(offsetof(lum_port_data, port_mutex) % sizeof(uint32_t) == 0);
  port_copy copy;
  copy_words<uint32_t>(&copy.port_handle, &node.port_handle, sizeof node.port_handle);
  copy_words<uint32_t>(&copy.data, &node.data, offsetof(lum_port_data, port_mutex));
  copy_words<uint64_t>(&copy.data.mutex_kept_by, &node.data.mutex_kept_by,
                       sizeof node.data.mutex_kept_by);
  copy_words<uint8_t>(&copy.data.deletion_asked, &node.data.deletion_asked, 1);
  return copy;
}

struct wanted_port {
  uint32_t rsip = 0;
  std::optional<port_copy> found;
};

struct gathered_ports {
  std::map<uint32_t, port_copy> ports;
  bool memory_ended = false;  // nothing is thrown through the library
};

// The walk keeps the node's memory for as long as the callback runs.
int add_to_map(void *node, void *context) {
  const auto &info = *static_cast<const lum_port_node_info *>(node);
  auto &gathered = *static_cast<gathered_ports *>(context);
  try {
    gathered.ports.emplace(info.rsip, copy_node(info));
  } catch (const std::bad_alloc &) {
    gathered.memory_ended = true;
  }
  return gathered.memory_ended ? 1 : 0;
}

int look_for(void *node, void *context) {
  const auto &info = *static_cast<const lum_port_node_info *>(node);
  auto &wanted = *static_cast<wanted_port *>(context);
  if (info.rsip == wanted.rsip) wanted.found = copy_node(info);
  return wanted.found ? 1 : 0;
}

}  // namespace

std::map<uint32_t, port_copy> copy_ports() {
  gathered_ports gathered;
  lum_ports_db_walk_via_rsip(add_to_map, &gathered);
  if (gathered.memory_ended) throw std::bad_alloc();
  return std::move(gathered.ports);
}

std::optional<port_copy> copy_port(uint32_t rsip) {
  wanted_port wanted{rsip, {}};
  lum_ports_db_walk_via_rsip(look_for, &wanted);
  return wanted.found;
}

bool has_work_for_polling() {
  const auto copies = copy_ports();
  return std::any_of(copies.begin(), copies.end(),
                     [](const auto &one) { return is_to_be_polled(one.second); });
}

}  // namespace lumd
