// The Linux platform's services beside what the kernel charges for the same durability.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "bench.h"
#include "ctrace.h"
#include "lum.h"
#include "lum_linux/services.h"
#include "scratch.h"

namespace {

void save(benchmark::State &state) {
  const bool is_open = bench::open_checkpoints();
  lum_port_data *port = &lum_get_port_node_from_port_handle(1)->data;
  for (auto _ : state) {
    ++port->port_cfg[0].threshold;
    if (!is_open || lum_chkpt_save(port) != 0) state.SkipWithError("not saved");
  }
}

void save_bare(benchmark::State &state) {
  const std::string path = bench::scratch() / "record";
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

ctrace_handle open_channel(const char *name) {
  lum_linux::traces_set_directory("bench_dir", bench::scratch());
  ctrace_handle handle = 0;
  ctrace_open_internal(&handle, name, 0x400000, 278, "bench_dir", "0", 0);
  ctrace_enable_configuration(handle, nullptr);
  return handle;
}

void trace(benchmark::State &state) {
  static const ctrace_handle channel = open_channel("bench");
  for (auto _ : state) {
    ctrace_internal(channel, 1, 4, 1, "sdsd", "[%s][tid:%d]%s:reading %d\n", "bench", 1, "LUM_INFO",
                    7);
  }
}

void trace_bare(benchmark::State &state) {
  std::FILE *file = std::fopen((bench::scratch() / "plain.log").c_str(), "w");
  for (auto _ : state) {
    std::fprintf(file, "[%s][tid:%d]%s:reading %d\n", "bench", 1, "LUM_INFO", 7);
    std::fflush(file);
  }
  std::fclose(file);
}

constexpr char seven_arguments[] = "[%s][tid:%d]%s:Write page %d offset %x val %x rc %d\n";

void trace_seven(benchmark::State &state) {
  static const ctrace_handle channel = open_channel("bench_seven");
  for (auto _ : state) {
    ctrace_internal(channel, 118, 7, 1, "sdsdddd", seven_arguments, "bench", 1, "LUM_INFO", 16, 128,
                    7, 0);
  }
}

void trace_off(benchmark::State &state) {
  static const ctrace_handle channel = [] {
    const ctrace_handle handle = open_channel("bench_off");
    lum_linux::traces_enable("bench_off", false);
    return handle;
  }();
  for (auto _ : state) {
    ctrace_internal(channel, 118, 7, 1, "sdsdddd", seven_arguments, "bench", 1, "LUM_INFO", 16, 128,
                    7, 0);
  }
}

void trace_seven_bare(benchmark::State &state) {
  std::FILE *file = std::fopen((bench::scratch() / "plain_seven.log").c_str(), "w");
  for (auto _ : state) {
    std::fprintf(file, seven_arguments, "bench", 1, "LUM_INFO", 16, 128, 7, 0);
    std::fflush(file);
  }
  std::fclose(file);
}

}  // namespace

void bench::services() {
  waiting_pair("save a checkpoint record", "pwrite and fdatasync", save, save_bare);
  pair("write a trace line", "fprintf and fflush", trace, trace_bare);
  pair("write a trace line, 7 arguments", "fprintf and fflush", trace_seven, trace_seven_bare);
  pair("a trace line, channel off", "fprintf and fflush", trace_off, trace_seven_bare);
}
