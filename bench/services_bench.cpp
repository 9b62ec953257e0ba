// The Linux platform's services beside what the kernel charges for the same durability.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench.h"
#include "ctrace.h"
#include "lum.h"
#include "lum_linux/services.h"

namespace {

const std::filesystem::path &folder() {
  static const struct temporary {
    std::filesystem::path path;
    temporary() {
      std::string name = "/tmp/lum-bench-XXXXXX";
      path = mkdtemp(name.data()) == nullptr ? "." : name;
    }
    ~temporary() { std::filesystem::remove_all(path); }
  } made;
  return made.path;
}

void save(benchmark::State &state) {
  bench::start_ports();
  static const bool opened = [] {
    lum_linux::checkpoints_set_path(folder() / "store.db");
    std::uint32_t restart = 0;
    return lum_chkpt_init(lum_get_ctx(), &restart) == 0;
  }();
  lum_port_data *port = &lum_get_port_node_from_port_handle(1)->data;
  for (auto _ : state) {
    ++port->port_cfg[0].threshold;
    if (!opened || lum_chkpt_save(port) != 0) state.SkipWithError("not saved");
  }
}

void save_bare(benchmark::State &state) {
  const std::string path = folder() / "record";
  const int file = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
  lum_chkpt_record record = {};
  for (auto _ : state) {
    ++record.port_cfg[0].threshold;
    if (pwrite(file, &record, sizeof record, 0) < 0 || fdatasync(file) != 0) {
      state.SkipWithError("not written");
    }
  }
  close(file);
}

void trace(benchmark::State &state) {
  static const ctrace_handle channel = [] {
    lum_linux::traces_set_directory("bench_dir", folder());
    ctrace_handle handle = 0;
    ctrace_open_internal(&handle, "bench", 0x400000, 278, "bench_dir", "0", 0);
    return handle;
  }();
  for (auto _ : state) {
    ctrace_internal(channel, 1, 4, 1, "sdsd", "[%s][tid:%d]%s:reading %d\n", "bench", 1, "LUM_INFO",
                    7);
  }
}

void trace_bare(benchmark::State &state) {
  std::FILE *file = std::fopen((folder() / "plain.log").c_str(), "w");
  for (auto _ : state) {
    std::fprintf(file, "[%s][tid:%d]%s:reading %d\n", "bench", 1, "LUM_INFO", 7);
    std::fflush(file);
  }
  std::fclose(file);
}

}  // namespace

void bench::services() {
  pair("save a checkpoint record|pwrite and fdatasync", save, save_bare);
  pair("write a trace line|fprintf and fflush", trace, trace_bare);
}
