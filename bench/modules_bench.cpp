// Module access and reports beside the bare callback and the bare copy.
#include <cstring>

#include "bench.h"
#include "lum.h"

namespace {

constexpr std::int32_t page_bytes = 128;
std::uint8_t page[page_bytes];

cerrno read_block(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t,
                  std::int32_t length, std::uint8_t *buffer) {
  std::memcpy(buffer, page, static_cast<std::size_t>(length));
  return 0;
}

void read_page(benchmark::State &state) {
  lum_get_ctx()->platform_cbs.i2c_read_block = read_block;
  std::uint8_t buffer[page_bytes];
  for (auto _ : state) {
    lum_i2c_read_write(1, 1, 0, 5, 0, 0, page_bytes, buffer);
    benchmark::DoNotOptimize(buffer);
  }
}

void read_page_bare(benchmark::State &state) {
  std::uint8_t buffer[page_bytes];
  for (auto _ : state) {
    read_block(1, 0, 5, 0, 0, page_bytes, buffer);
    benchmark::DoNotOptimize(buffer);
  }
}

void report(benchmark::State &state) {
  static lum_hw_info_out record;
  const std::uint32_t ifhandle = bench::first_ifhandle + 10;
  for (auto _ : state) {
    lum_get_hw_info(1, &ifhandle, &record);
    benchmark::DoNotOptimize(record);
  }
}

void report_bare(benchmark::State &state) {
  static lum_hw_info_out record;
  for (auto _ : state) {
    std::memset(&record, 0, sizeof record);
    benchmark::DoNotOptimize(record);
  }
}

}  // namespace

void bench::modules() {
  pair("read 128 bytes of a module", "the callback alone", read_page, read_page_bare);
  pair("report a port's hardware state", "memset of the record", report, report_bare);
}
