// A polling cycle's visit of one port beside its two block reads.
#include <array>
#include <cstring>
#include <vector>

#include "bench.h"
#include "lum.h"

namespace {

constexpr std::int32_t lower_page = 128;
constexpr std::int32_t status_chunk = 23;
std::array<std::uint8_t, lower_page> page;

cerrno read_block(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t,
                  std::int32_t length, std::uint8_t *buffer) {
  std::memcpy(buffer, page.data(), static_cast<std::size_t>(length));
  return 0;
}

void visit(benchmark::State &state) {
  lum_get_ctx()->platform_cbs.i2c_read_block = read_block;
  bench::polling_cycle();
  for (auto _ : state) state.SetIterationTime(bench::polling_cycle() / bench::port_count());
}

// Through a pointer, as the library calls it, and into a buffer a port.
void read_twice(benchmark::State &state) {
  std::vector<std::array<std::uint8_t, lower_page>> buffers(bench::port_count());
  lum_i2c_read_block_cb volatile read = read_block;
  for (auto _ : state) {
    const double begin = bench::thread_seconds();
    for (auto &buffer : buffers) {
      read(1, 0, 5, 0, 0, lower_page, buffer.data());
      read(1, 0, 5, 3, 128, status_chunk, buffer.data());
      benchmark::DoNotOptimize(buffer);
    }
    state.SetIterationTime((bench::thread_seconds() - begin) / bench::port_count());
  }
}

}  // namespace

void bench::visits() {
  const auto cycles = static_cast<benchmark::IterationCount>(20 + 40000 / bench::port_count());
  timed_pair("visit a port, callbacks from memory", "the two callbacks alone", cycles, visit,
             read_twice);
}
