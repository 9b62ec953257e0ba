#include "node/port_data.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <iterator>
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

template <typename Word>
bool is_set(const Word &word) {
  return __atomic_load_n(&word, __ATOMIC_RELAXED) != 0;
}

port_facts facts_of(const lum_port_node_info &node) {
  const lum_port_data &data = node.data;
  port_facts facts;
  facts.rsip = node.rsip;
  facts.created = is_set(data.sub_port[0].created) && is_set(data.sub_port[1].created);
  facts.going = is_set(data.deletion_asked);
  facts.inserted = is_set(data.inserted);
  facts.to_be_polled = facts.created && !facts.going && facts.inserted &&
                       is_set(data.is_dom_enabled) && !is_set(data.transceiver_disabled);
  return facts;
}

port_words words_of(const lum_port_node_info &node) {
  const lum_port_data &data = node.data;
  port_words words;
  words.facts = facts_of(node);
  for (std::size_t i = 0; i < words.controllers.size(); ++i) {
    port_words::controller &one = words.controllers[i];
    copy_words<uint32_t>(&one.ifhandle, &data.sub_port[i].ifhandle, sizeof one.ifhandle);
    one.created = is_set(data.sub_port[i].created);
    copy_words<uint16_t>(one.readings.data(), data.dom[i].readings, sizeof one.readings);
    copy_words<uint64_t>(&one.forced_alarms, &data.test[i].test_alarm_bits,
                         sizeof one.forced_alarms);
    const auto &offsets = data.test[i].pm_test_offsets;
    one.tested = std::any_of(std::begin(offsets), std::end(offsets),
                             [](const uint16_t &offset) { return is_set(offset); });
  }
  return words;
}

struct gathered_words {
  std::vector<port_words> &ports;
  bool memory_ended = false;
};

int add_words(void *node, void *context) {
  auto &gathered = *static_cast<gathered_words *>(context);
  try {
    gathered.ports.push_back(words_of(*static_cast<const lum_port_node_info *>(node)));
  } catch (const std::bad_alloc &) {
    gathered.memory_ended = true;
  }
  return gathered.memory_ended ? 1 : 0;
}

int look_for_work(void *node, void *context) {
  auto &found = *static_cast<bool *>(context);
  found = facts_of(*static_cast<const lum_port_node_info *>(node)).to_be_polled;
  return found ? 1 : 0;
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

void gather_words(std::vector<port_words> &into) {
  const auto is_before = [](const port_words &a, const port_words &b) {
    return a.facts.rsip < b.facts.rsip;
  };
  into.clear();
  gathered_words gathered{into};
  lum_ports_db_walk_via_rsip(add_words, &gathered);
  if (gathered.memory_ended) throw std::bad_alloc();
  if (!std::is_sorted(into.begin(), into.end(), is_before)) {
    std::sort(into.begin(), into.end(), is_before);
  }
}

const port_words *find_words(const std::vector<port_words> &all, uint32_t rsip) {
  const auto found =
      std::lower_bound(all.begin(), all.end(), rsip,
                       [](const port_words &one, uint32_t key) { return one.facts.rsip < key; });
  return found != all.end() && found->facts.rsip == rsip ? &*found : nullptr;
}

bool has_work_for_polling() {
  bool found = false;
  lum_ports_db_walk_via_rsip(look_for_work, &found);
  return found;
}

}  // namespace lumd
