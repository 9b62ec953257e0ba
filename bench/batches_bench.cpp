// The payload of a create batch beside the clearing and copying of as many bytes.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench.h"
#include "lum.h"

namespace {

constexpr std::int32_t controllers = 2 * bench::usual_ports;

cerrno take_batch(const char *const *, std::uint16_t, const void *payload, std::uint32_t,
                  std::uint32_t, void *, std::uint32_t, imca_completion) {
  benchmark::DoNotOptimize(payload);
  return 0;
}

void create_batch(benchmark::State &state) {
  std::vector<lum_controller_create_entry> entries(controllers);
  std::vector<const char *> names(controllers, "Ots0_1_0_0_0");
  std::vector<std::uint16_t> types(controllers, LUM_IFTYPE_OTS);
  lum_controller_create_request request = {LUM_IFTYPE_OTS, controllers, entries.data(), 0};
  lum_get_ctx()->platform_cbs.im_req_by_name = take_batch;
  for (auto _ : state) lum_controllers_create(&request, names.data(), types.data());
  lum_get_ctx()->platform_cbs.im_req_by_name = nullptr;
}

void copy_batch(benchmark::State &state) {
  std::vector<lum_controller_attrs> attrs(controllers);
  for (auto _ : state) {
    auto *payload = static_cast<std::uint8_t *>(std::calloc(controllers, LUM_CREATE_ELEMENT_SIZE));
    for (std::int32_t i = 0; i < controllers; ++i) {
      std::memcpy(payload + i * LUM_CREATE_ELEMENT_SIZE + 88, &attrs[static_cast<std::size_t>(i)],
                  LUM_ATTRS_SIZE);
    }
    benchmark::DoNotOptimize(payload);
    std::free(payload);
  }
}

}  // namespace

void bench::batches() {
  pair("build and send a batch of {controllers} controllers", "calloc and memcpy of the same bytes",
       create_batch, copy_batch);
}
