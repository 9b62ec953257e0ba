// Makes calls of the library while callgrind counts their instructions; instructions.py runs it
// there and reads what was counted. By itself it says nothing.
#include <valgrind/callgrind.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lum.h"
#include "lum_linux/services.h"
#include "port_model.h"
#include "test_folder.h"

namespace {

constexpr std::uint32_t times = 100;  // instructions.py divides by it

cerrno read_block(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t,
                  std::int32_t length, std::uint8_t *buffer) {
  std::memset(buffer, 0, static_cast<std::size_t>(length));
  return 0;
}

// What comes once, such as the dynamic linker's work, comes before the count.
template <typename Call>
void count(const char *what, Call call) {
  call(0);
  CALLGRIND_ZERO_STATS;
  for (std::uint32_t i = 0; i < times; ++i) call(i);
  CALLGRIND_DUMP_STATS_AT(what);
}

void count_with(std::uint32_t ports, const char *find, const char *report, const char *cycle) {
  bench::grow_to(ports);
  const std::uint32_t last = bench::first_ifhandle + 2 * ports - 1;
  static lum_hw_info_out record;
  count(find, [&](std::uint32_t) {
    char name[LUM_DEVID_NAME_SIZE];
    lum_get_ifname_from_ctx(last, name);
  });
  count(report, [&](std::uint32_t) { lum_get_hw_info(1, &last, &record); });
  count(cycle, [](std::uint32_t) { bench::polling_cycle(); });
}

void count_all() {
  bench::grow_to(bench::usual_ports);
  lum_get_ctx()->platform_cbs.i2c_read_block = read_block;
  bench::polling_cycle();  // its thread is at rest from now on
  CALLGRIND_DUMP_STATS;    // the first dump has what was before, whatever was set to zero
  count("find a port by rsip, in turn",
        [](std::uint32_t i) { lum_ports_db_find_entry(bench::rsip_of(i % bench::usual_ports)); });
  count("find a port by rsip, in any order", [](std::uint32_t i) {
    lum_ports_db_find_entry(bench::rsip_of(i * 37 % bench::usual_ports));
  });
  count("find a port by handle, in turn",
        [](std::uint32_t i) { lum_get_port_node_from_port_handle(i % bench::usual_ports + 1); });
  count("read 128 bytes of a module", [](std::uint32_t) {
    std::uint8_t page[128];
    lum_i2c_read_write(1, 1, 0, 5, 0, 0, sizeof page, page);
  });
  count_with(bench::usual_ports, "look the last interface handle of 64 ports up",
             "report the last port's hardware state of 64", "polling cycle of 64 ports");
  count_with(500, "look the last interface handle of 500 ports up",
             "report the last port's hardware state of 500", "polling cycle of 500 ports");
}

void count_lines(const std::filesystem::path &folder) {
  lum_linux::traces_set_directory("instructions", folder);
  ctrace_handle handle = 0;
  ctrace_open_internal(&handle, "instructions", 0x80000, 278, "instructions", "0", 0);
  ctrace_enable_configuration(handle, nullptr);
  const auto line = [&](std::uint32_t i) {
    ctrace_internal(handle, 1, 7, 1, "sdsdddd", "[%s][tid:%d]%s:%d/%d/%d: reading %d\n",
                    "instructions", 1, "LUM_INFO", 3, 0, 7, i);
  };
  count("a trace line of 7 arguments, on its caller's thread", line);
  lum_linux::traces_enable("instructions", false);
  count("a trace line, channel off", line);
}

}  // namespace

int main() {
  {
    const test_folder folder;
    lum_linux::checkpoints_set_path(folder / "store.db");
    lum_lib_init();
    count_all();
    count_lines(folder / "traces");
    lum_linux::checkpoints_close();
  }
  std::fflush(nullptr);
  _Exit(0);  // the polling thread has no end
}
