// Counts what calls of the library cost that can be counted exactly, and compares with what is on
// record. Times are none of its business.
//
//   lum_counts FILE            fails when a count is not on record, or is more than a tenth above
//   it lum_counts --accept FILE   puts what is counted on record
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "lum.h"
#include "lum_linux/services.h"
#include "port_model.h"
#include "seams.h"
#include "test_folder.h"

namespace {

constexpr std::uint32_t ports = 64;
constexpr std::uint32_t created = 64;
constexpr std::uint32_t created_slot = 0;
constexpr std::uint32_t first_created_handle = 50000;

struct count {
  std::string what;
  std::uint64_t number;
};
std::vector<count> all;

// What `call` asks for.
template <typename Call>
counts::tally cost_of(Call call) {
  const counts::tally before = counts::now();
  call();
  const counts::tally after = counts::now();
  return {after.allocations - before.allocations,
          after.flushes - before.flushes,
          after.writes - before.writes,
          after.tree_calls - before.tree_calls,
          after.checkpoint_calls - before.checkpoint_calls,
          after.trace_lines - before.trace_lines};
}

void note(const std::string &what, std::uint64_t number) { all.push_back({what, number}); }

std::uint64_t transfers = 0;

cerrno read_block(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t,
                  std::int32_t length, std::uint8_t *buffer) {
  ++transfers;
  std::memset(buffer, 0, static_cast<std::size_t>(length));
  return 0;
}

void count_cycle() {
  bench::polling_cycle();
  const std::uint64_t before = transfers;
  const counts::tally cost = cost_of([] { bench::polling_cycle(); });
  note("polling cycle of 64 ports: allocations", cost.allocations);
  note("polling cycle of 64 ports: tree calls", cost.tree_calls);
  note("polling cycle of 64 ports: transfers", transfers - before);
  note("polling cycle of 64 ports: trace lines", cost.trace_lines);
}

void count_look_ups() {
  const std::uint32_t last = bench::first_ifhandle + 2 * ports - 1;
  char name[LUM_DEVID_NAME_SIZE];
  static lum_hw_info_out record;
  counts::tally cost = cost_of([] { lum_ports_db_find_entry(bench::rsip_of(5)); });
  note("find a port by rsip: allocations", cost.allocations);
  note("find a port by rsip: tree calls", cost.tree_calls);
  cost = cost_of([] { lum_get_port_node_from_port_handle(6); });
  note("find a port by handle: allocations", cost.allocations);
  note("find a port by handle: tree calls", cost.tree_calls);
  cost = cost_of([&] { lum_get_ifname_from_ctx(last, name); });
  note("look the last interface handle of 64 ports up: allocations", cost.allocations);
  note("look the last interface handle of 64 ports up: tree calls", cost.tree_calls);
  cost = cost_of([&] { lum_get_hw_info(1, &last, &record); });
  note("report the last port's hardware state of 64: allocations", cost.allocations);
  note("report the last port's hardware state of 64: tree calls", cost.tree_calls);
}

void count_reads() {
  std::uint8_t buffer[300];
  const auto read = [&](std::int32_t length) {
    return cost_of([&] { lum_i2c_read_write(1, 1, 0, 5, 0, 0, length, buffer); }).allocations;
  };
  note("read 256 bytes of a module: allocations", read(256));
  note("read 257 bytes of a module: allocations", read(257));
}

void create_ports() {
  const lum_slot_props slot_props = {1, created};
  lum_plat_init(0, created_slot, 0, &slot_props);
  for (std::uint32_t i = 0; i < created; ++i) {
    lum_port_props props = {};
    props.rsip = created_slot << 16 | i;
    props.port_index = i;
    props.port_handle = first_created_handle + i;
    lum_create_ports(1, &props);
  }
}

void delete_records() {
  for (std::uint32_t i = 0; i < created; ++i) {
    lum_port_node_info *node = lum_get_port_node_from_port_handle(first_created_handle + i);
    if (node != nullptr) lum_port_chkpt_delete(&node->data);
  }
}

void count_records() {
  counts::tally cost = cost_of(create_ports);
  note("create 64 ports: allocations", cost.allocations);
  note("create 64 ports: flushes", cost.flushes);
  note("create 64 ports: writes", cost.writes);
  note("create 64 ports: tree calls", cost.tree_calls);
  note("create 64 ports: checkpoint calls", cost.checkpoint_calls);
  note("create 64 ports: trace lines", cost.trace_lines);
  lum_port_data &port = lum_get_port_node_from_port_handle(first_created_handle)->data;
  lum_chkpt_save(&port);
  cost = cost_of([&] { lum_chkpt_save(&port); });
  note("save a record: allocations", cost.allocations);
  note("save a record: flushes", cost.flushes);
  note("save a record: writes", cost.writes);
  cost = cost_of(delete_records);
  note("delete the records of 64 ports: flushes", cost.flushes);
}

void count_lines(const std::filesystem::path &folder) {
  lum_linux::traces_set_directory("counts", folder);
  ctrace_handle handle = 0;
  ctrace_open_internal(&handle, "counts", 0x80000, 278, "counts", "0", 0);
  ctrace_enable_configuration(handle, nullptr);
  const auto line = [&] {
    counts::real_ctrace_internal()(handle, 1, 4, 1, "sdsd", "[%s][tid:%d]%s:reading %d\n", "counts",
                                   1, "LUM_INFO", 7);
  };
  line();
  counts::tally cost = cost_of(line);
  note("write a trace line: allocations", cost.allocations);
  lum_linux::traces_enable("counts", false);
  cost = cost_of(line);
  note("a trace line, channel off: allocations", cost.allocations);
}

void count_all() {
  const test_folder folder;
  lum_linux::checkpoints_set_path(folder / "store.db");
  lum_lib_init();
  bench::grow_to(ports);
  lum_get_ctx()->platform_cbs.i2c_read_block = read_block;
  count_cycle();
  count_look_ups();
  count_reads();
  count_records();
  count_lines(folder / "traces");
  lum_linux::checkpoints_close();
}

bool accept(const std::string &file) {
  std::ofstream out(file);
  for (const count &one : all) out << one.number << ' ' << one.what << '\n';
  return static_cast<bool>(out.flush());
}

bool compare(const std::string &file) {
  std::map<std::string, std::uint64_t> on_record;
  std::ifstream in(file);
  std::uint64_t number = 0;
  for (std::string what; in >> number && std::getline(in >> std::ws, what);) {
    on_record[what] = number;
  }
  bool is_good = true;
  for (const count &one : all) {
    const auto found = on_record.find(one.what);
    const bool is_known = found != on_record.end();
    const bool has_grown = is_known && one.number * 10 > found->second * 11;
    std::printf("%8llu  %s%s\n", static_cast<unsigned long long>(one.number), one.what.c_str(),
                !is_known   ? "  <- not on record"
                : has_grown ? ("  <- was " + std::to_string(found->second)).c_str()
                            : "");
    is_good = is_good && is_known && !has_grown;
    on_record.erase(one.what);
  }
  for (const auto &[what, gone] : on_record)
    std::printf("%s is on record and not counted\n", what.c_str());
  if (!is_good || !on_record.empty()) {
    std::fprintf(stderr,
                 "lum_counts: %s says otherwise; if that is meant, take it over with "
                 "tools/check.sh accept-counts and say why in the commit\n",
                 file.c_str());
  }
  return is_good && on_record.empty();
}

}  // namespace

int main(int argc, char **argv) {
  const bool is_to_accept = argc == 3 && std::string_view(argv[1]) == "--accept";
  if (argc != 2 && !is_to_accept) {
    std::fprintf(stderr, "usage: lum_counts [--accept] FILE\n");
    return 2;
  }
  count_all();
  const bool is_good = is_to_accept ? accept(argv[2]) : compare(argv[1]);
  std::fflush(nullptr);
  _Exit(is_good ? 0 : 1);  // the polling thread has no end
}
