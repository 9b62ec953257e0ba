// Ports created beside what it would take to have a record of each on the disk.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>

#include "bench.h"
#include "lum.h"
#include "scratch.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr std::uint32_t slot = 0;
constexpr std::uint32_t created = 64;
constexpr std::uint32_t first_handle = 50000;
constexpr benchmark::IterationCount rounds = 3;

double seconds_since(clock_type::time_point begin) {
  return std::chrono::duration<double>(clock_type::now() - begin).count();
}

void remove_created() {
  for (std::uint32_t i = 0; i < created; ++i) {
    lum_port_node_info *node = lum_get_port_node_from_port_handle(first_handle + i);
    if (node == nullptr) continue;
    lum_port_chkpt_delete(&node->data);
    lum_ports_db_remove_entry(node->rsip);
  }
}

void create(benchmark::State &state) {
  const bool is_open = bench::open_checkpoints();
  for (auto _ : state) {
    const lum_slot_props slot_props = {1, created};
    lum_plat_init(0, slot, 0, &slot_props);
    const auto begin = clock_type::now();
    for (std::uint32_t i = 0; i < created; ++i) {
      lum_port_props props = {};
      props.rsip = slot << 16 | i;
      props.port_index = i;
      props.port_handle = first_handle + i;
      if (!is_open || lum_create_ports(1, &props) != 0) state.SkipWithError("not created");
    }
    state.SetIterationTime(seconds_since(begin) / created);
    remove_created();
  }
}

void write_record(benchmark::State &state) {
  const std::string path = bench::scratch() / "created";
  const int file = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
  const lum_chkpt_record record = {};
  for (auto _ : state) {
    const auto begin = clock_type::now();
    for (std::uint32_t i = 0; i < created; ++i) {
      if (pwrite(file, &record, sizeof record, 0) < 0 || fdatasync(file) != 0) {
        state.SkipWithError("not written");
      }
    }
    state.SetIterationTime(seconds_since(begin) / created);
  }
  close(file);
}

}  // namespace

void bench::creations() {
  timed_pair("create a port, no traces", "pwrite and fdatasync of its record", rounds, create,
             write_record);
}
