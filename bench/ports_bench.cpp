// The ports database beside a std::map under a mutex.
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "bench.h"
#include "lum.h"

namespace {

// As many ports, each with a block of the same size.
struct plain_database {
  std::mutex mutex;
  std::map<std::uint32_t, std::unique_ptr<lum_port_data>> ports;
};

plain_database &plain() {
  static plain_database database;
  for (std::uint32_t i = 0; i < bench::port_count(); ++i) {
    std::unique_ptr<lum_port_data> &port = database.ports[bench::rsip_of(i)];
    if (port == nullptr) port = std::make_unique<lum_port_data>();
    for (std::uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
      port->sub_port[s].ifhandle = bench::first_ifhandle + 2 * i + s;
    }
  }
  return database;
}

// The numbers that `key` makes of all ports, over and over.
template <typename Key, typename Find>
void find_each(benchmark::State &state, Key key, Find find) {
  std::vector<std::uint32_t> keys;
  for (std::uint32_t i = 0; i < bench::port_count(); ++i) keys.push_back(key(i));
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(find(keys[next]));
    if (++next == keys.size()) next = 0;
  }
}

void find_by_rsip(benchmark::State &state) {
  find_each(state, bench::rsip_of, lum_ports_db_find_entry);
}

void find_by_handle(benchmark::State &state) {
  find_each(
      state, [](std::uint32_t port) { return port + 1; }, lum_get_port_node_from_port_handle);
}

void find_plain(benchmark::State &state) {
  plain_database &database = plain();
  find_each(state, bench::rsip_of, [&](std::uint32_t key) {
    const std::lock_guard lock(database.mutex);
    return database.ports.find(key)->second.get();
  });
}

int count_node(void *, void *context) {
  ++*static_cast<std::uint32_t *>(context);
  return 0;
}

void walk(benchmark::State &state) {
  for (auto _ : state) {
    std::uint32_t count = 0;
    lum_ports_db_walk_via_rsip(count_node, &count);
    benchmark::DoNotOptimize(count);
  }
}

void walk_plain(benchmark::State &state) {
  plain_database &database = plain();
  for (auto _ : state) {
    std::uint32_t count = 0;
    for (const auto &port : database.ports) {
      const std::lock_guard lock(database.mutex);
      benchmark::DoNotOptimize(port.second.get());
      ++count;
    }
    benchmark::DoNotOptimize(count);
  }
}

// The port that the walk comes to last.
std::uint32_t last_ifhandle() { return bench::first_ifhandle + 2 * bench::port_count() - 1; }

void find_by_ifhandle(benchmark::State &state) {
  char name[LUM_DEVID_NAME_SIZE];
  for (auto _ : state) benchmark::DoNotOptimize(lum_get_ifname_from_ctx(last_ifhandle(), name));
}

// A bare loop over pointers to the same blocks.
void find_in_array(benchmark::State &state) {
  std::vector<const lum_port_data *> blocks;
  for (const auto &port : plain().ports) blocks.push_back(port.second.get());
  const std::uint32_t ifhandle = last_ifhandle();
  for (auto _ : state) {
    const lum_port_data *found = nullptr;
    for (const lum_port_data *block : blocks) {
      if (block->sub_port[0].ifhandle == ifhandle || block->sub_port[1].ifhandle == ifhandle) {
        found = block;
        break;
      }
    }
    benchmark::DoNotOptimize(found);
  }
}

void report_last(benchmark::State &state) {
  static lum_hw_info_out record;
  const std::uint32_t ifhandle = last_ifhandle();
  for (auto _ : state) {
    lum_get_hw_info(1, &ifhandle, &record);
    benchmark::DoNotOptimize(record);
  }
}

}  // namespace

void bench::ports() {
  pair("find a port by rsip", "std::map under a mutex", find_by_rsip, find_plain);
  pair("find a port by handle", "std::map under a mutex", find_by_handle, find_plain);
  pair("walk {ports} ports", "std::map, a mutex taken per step", walk, walk_plain);
  pair("look the last interface handle up", "a bare loop over the blocks", find_by_ifhandle,
       find_in_array);
  pair("report the last port's hardware state", "a bare loop over the blocks", report_last,
       find_in_array);
}
