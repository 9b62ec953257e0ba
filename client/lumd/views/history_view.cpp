#include "views/history_view.h"

#include <nlohmann/json.hpp>

#include "node/driver.h"
#include "node/readings.h"
#include "views/polling_view.h"
#include "views/times.h"

namespace lumd {
namespace {

// Null for a power that no module can have measured.
json show_value(const lum_words::reading &word, uint16_t raw) {
  if (word.unit != lum_words::reading_unit::dbm) return reading_value(raw);
  return is_plausible_power(raw) ? json(power_dbm(raw)) : json();
}

json show_reading(const sample_block &block, std::size_t sub_port, std::size_t place) {
  const lum_words::reading &word = lum_words::readings[place];
  json values = json::array();
  for (const reading_sample &one : block.samples) {
    values.push_back(show_value(word, one.readings[sub_port][place]));
  }
  const bool is_power = word.unit == lum_words::reading_unit::dbm;
  return {{"sub_port", sub_port},
          {"name", word.name},
          {"unit", is_power ? json("dBm") : json()},
          {"values", std::move(values)}};
}

// In seconds since the epoch, to the tenth.
json show_times(const sample_block &block) {
  const auto begun =
      std::chrono::duration_cast<std::chrono::milliseconds>(block.begun.time_since_epoch())
          .count() /
      100;
  json times = json::array();
  for (const reading_sample &one : block.samples) {
    times.push_back(static_cast<double>(begun + one.moment) / 10);
  }
  return times;
}

}  // namespace

json show_history(driver &node, const lum_linux::port_description &port,
                  std::optional<uint32_t> sub_port) {
  const sample_block block = node.history().of(port.rsip);
  json readings = json::array();
  for (std::size_t i = 0; i < sub_ports_of_a_sample; ++i) {
    if (sub_port && *sub_port != i) continue;
    for (std::size_t place = 0; place < lum_words::readings.size(); ++place) {
      readings.push_back(show_reading(block, i, place));
    }
  }
  return {{"port", port.name},
          {"now", epoch_seconds(std::chrono::system_clock::now())},
          {"span_s", std::chrono::seconds(reading_history::span).count()},
          {"halt", show_halt(node)},
          {"times", show_times(block)},
          {"readings", std::move(readings)}};
}

}  // namespace lumd
