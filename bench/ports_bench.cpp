// The ports database beside a std::map under a mutex.
#include <map>
#include <memory>
#include <mutex>

#include "bench.h"
#include "lum.h"

namespace {

struct plain_database {
  std::mutex mutex;
  std::map<std::uint32_t, std::unique_ptr<lum_port_data>> ports;

  plain_database() {
    for (std::uint32_t i = 0; i < bench::port_count; ++i) {
      ports[1u << 16 | i] = std::make_unique<lum_port_data>();
    }
  }
};

plain_database &plain() {
  static plain_database database;
  return database;
}

void find(benchmark::State &state) {
  bench::start_ports();
  std::uint32_t port = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(lum_ports_db_find_entry(1u << 16 | port));
    port = (port + 1) % bench::port_count;
  }
}

void find_plain(benchmark::State &state) {
  plain_database &database = plain();
  std::uint32_t port = 0;
  for (auto _ : state) {
    std::lock_guard lock(database.mutex);
    benchmark::DoNotOptimize(database.ports.find(1u << 16 | port));
    port = (port + 1) % bench::port_count;
  }
}

int count_node(void *, void *context) {
  ++*static_cast<std::uint32_t *>(context);
  return 0;
}

void walk(benchmark::State &state) {
  bench::start_ports();
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
      std::lock_guard lock(database.mutex);
      benchmark::DoNotOptimize(port.second.get());
      ++count;
    }
    benchmark::DoNotOptimize(count);
  }
}

}  // namespace

void bench::ports() {
  pair("find a port by rsip|std::map under a mutex", find, find_plain);
  pair("walk 64 ports|std::map, a mutex taken per step", walk, walk_plain);
}
