#include "views/module_view.h"

#include <nlohmann/json.hpp>

#include "json/object.h"
#include "views/port_view.h"

namespace lumd {
namespace {

using lum_client::object;

const char *backend_name(lum_linux::module_backend backend) {
  switch (backend) {
    case lum_linux::module_backend::file:
      return "file";
    case lum_linux::module_backend::i2c_dev:
      return "i2c-dev";
    case lum_linux::module_backend::simulated:
      return "simulated";
  }
  return "unknown";
}

json show_line(const lum_linux::line_status &line) {
  json shown = object({{"file", line.file}, {"on", nullptr}});
  if (line.is_on) shown["on"] = *line.is_on;
  if (line.code != 0) shown["problem"] = cerr_strerror(line.code);
  return shown;
}

}  // namespace

json show_module(driver &node, const lum_linux::port_description &port,
                 const lum_linux::module_status &module) {
  json shown = show_port(node, port);
  shown["module"]["backend"] = backend_name(module.backend);
  if (!module.way.empty()) shown["module"]["way"] = module.way;
  if (module.reset) shown["module"]["reset"] = show_line(*module.reset);
  if (module.low_power) shown["module"]["low_power"] = show_line(*module.low_power);
  shown["module"]["faults"] = to_string(module.faults);
  shown["module"]["pulled"] = module.pulled;
  shown["module"]["insertion"] = module.insertion;
  shown["module"]["busy_ms"] = module.busy_for.count();
  shown["module"]["bytes_read"] = module.statistics.bytes_read;
  shown["module"]["bytes_written"] = module.statistics.bytes_written;
  shown["module"]["last_transfer_us"] = nullptr;
  if (module.statistics.attempted > 0) {
    shown["module"]["last_transfer_us"] = module.statistics.last_duration.count();
  }
  return shown;
}

json show_page(uint32_t number, std::span<const uint8_t> bytes) {
  return object({{"number", number}, {"bytes", bytes}});
}

}  // namespace lumd
