#include "soak_model.h"

#include <cmath>
#include <type_traits>

#include "lum_linux/leds.h"
#include "lum_linux/stores.h"

namespace stress {
namespace {

// Lower-page positions of each sub-port's readings, and chunk positions of its status bytes.
constexpr std::array reading_at{std::array{18u, 45u, 68u, 43u, 47u},
                                std::array{41u, 22u, 66u, 20u, 24u}};
static_assert(reading_at[0].size() == std::extent_v<decltype(lum_dom_area::readings)>,
              "each reading has its place");
constexpr uint32_t status_at[2][3] = {{22, 19, 5}, {22, 18, 0}};
constexpr uint32_t flag_at[8] = {9, 10, 11, 12, 13, 64, 70, 49};

uint32_t chunk_page(const port_place &port) { return has_new_map(port) ? 1 : 3; }
uint32_t chunk_start(const port_place &port) { return has_new_map(port) ? 192 : 128; }

uint32_t word_at(const module_bytes &bytes, uint32_t offset) {
  return static_cast<uint32_t>(bytes.lower[offset] << 8 | bytes.lower[offset + 1]);
}

// Hundredths of a dBm to tenths of a microwatt, with the module's own negative numbers.
uint32_t power(uint32_t reading) {
  const double value = (reading & 0x1000) != 0 ? static_cast<double>(reading) - 65537.0 : reading;
  const double result = std::pow(10.0, static_cast<float>(value) / 1000.0F) * 10000.0;
  const auto rounded = static_cast<float>(result);
  return rounded > 0.00001F ? static_cast<uint32_t>(rounded) : 0;
}

uint64_t alarms(const module_bytes &bytes, uint32_t s) {
  const auto &lower = bytes.lower;
  uint64_t bitmap = 0;
  if (lower[12] & (s == 0 ? 0x20 : 0x02)) bitmap |= 0x1;
  if (lower[10] & (s == 0 ? 0x02 : 0x20)) bitmap |= 0x2;
  if (lower[13] & (s == 0 ? 0x03 : 0x30)) bitmap |= 0x4;
  if (lower[64] & (s == 0 ? 0x20 : 0x02)) bitmap |= 0x80000;
  if (lower[64] & (s == 0 ? 0x10 : 0x01)) bitmap |= 0x100000;
  if (s == 1 && lower[49] != 0) bitmap |= 0x60000;
  return bitmap;
}

class comparison {
 public:
  void check(const std::string &what, uint64_t is, uint64_t should_be) {
    if (is == should_be) return;
    found.push_back(what + " is " + std::to_string(is) + ", not " + std::to_string(should_be));
  }
  std::vector<std::string> found;
};

void compare_led(node &node, const port_place &port, const module_bytes &bytes, comparison &all) {
  const bool fault = ((bytes.lower[10] | bytes.lower[12]) & 0x22) != 0 || bytes.lower[13] != 0;
  uint32_t led = 99;
  node.platform().leds().get_state(port.rsip, &led);
  all.check("the LED", led, fault ? LUM_LED_FAULT : LUM_LED_NORMAL);
}

void compare_readings(const lum_port_data &data, const module_bytes &bytes, comparison &all) {
  for (uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
    const std::string sub_port = " of sub-port " + std::to_string(s);
    for (uint32_t i = 0; i < reading_at[s].size(); ++i) {
      all.check("reading " + std::to_string(i) + sub_port, word(data.dom[s].readings[i]),
                word_at(bytes, reading_at[s][i]));
    }
    for (uint32_t i = 0; i < 3; ++i) {
      all.check("status " + std::to_string(i) + sub_port, word(data.dom[s].status[i]),
                bytes.chunk[status_at[s][i]]);
    }
  }
  for (uint32_t i = 0; i < 8; ++i) {
    all.check("flag byte " + std::to_string(flag_at[i]), word(data.module_flags[i]),
              bytes.lower[flag_at[i]]);
  }
  all.check("the supply", word(data.module_word_16), word_at(bytes, 16));
  all.check("the firmware", word(data.vendor.fw_version), word_at(bytes, 39));
}

void compare_stores(const port_place &port, const module_bytes &bytes, comparison &all) {
  for (uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
    const std::string sub_port = " of sub-port " + std::to_string(s);
    const uint32_t ifhandle = ifhandle_of(port, s);
    const auto ptah = lum_linux::ptah_find(ifhandle);
    const auto pm = lum_linux::pm_find(ifhandle);
    if (!ptah || !pm || !pm->latest) {
      all.found.push_back("no PM or PTAH values" + sub_port);
      continue;
    }
    all.check("the bitmap" + sub_port, ptah->all.bitmap, alarms(bytes, s));
    all.check("the published bitmap" + sub_port, ptah->published, alarms(bytes, s));
    all.check("PM reading 3" + sub_port, pm->latest->reading_3,
              word_at(bytes, reading_at[s][3]) / 10);
    all.check("PM reading 4" + sub_port, pm->latest->reading_4[0],
              word_at(bytes, reading_at[s][4]));
    all.check("PM power 1" + sub_port, pm->latest->power_1,
              power(word_at(bytes, reading_at[s][1])));
    all.check("PM power 0" + sub_port, pm->latest->power_0,
              power(word_at(bytes, reading_at[s][0])));
  }
}

}  // namespace

bool has_new_map(const port_place &port) { return port.port % 2 == 1; }

std::string soak_module(const port_place &port) {
  return "vendor = \"II-VI\"\nserial = \"S" + std::to_string(port.handle) + "\"\nfirmware = [0, " +
         (has_new_map(port) ? "6]\nmemory_map = \"new\"\n" : "5]\nmemory_map = \"old\"\n");
}

// Powers stay where they fit 32 bits: the high byte of a reading is small, or that of a small
// negative number.
void randomise_module(node &node, const port_place &port, random_engine &random) {
  const auto poke = [&](uint32_t page, uint32_t offset, uint32_t value) {
    node.modules().poke(port.rsip, page, offset, static_cast<uint8_t>(value));
  };
  for (const auto &sub_port : reading_at) {
    for (const uint32_t offset : sub_port) {
      poke(0, offset, below(random, 2) == 0 ? below(random, 12) : 0xF8 + below(random, 8));
      poke(0, offset + 1, below(random, 256));
    }
  }
  const bool healthy = below(random, 2) == 0;
  for (const uint32_t offset : flag_at) {
    poke(0, offset, healthy || below(random, 3) != 0 ? 0 : 1u << below(random, 8));
  }
  poke(0, 14, below(random, 256));
  poke(0, 16, below(random, 256));
  for (uint32_t i = 0; i < 23; ++i) {
    poke(chunk_page(port), chunk_start(port) + i, below(random, 256));
  }
}

module_bytes look_into_module(node &node, const port_place &port) {
  module_bytes bytes = {};
  node.modules().peek(port.rsip, 0, 0, bytes.lower);
  node.modules().peek(port.rsip, chunk_page(port), chunk_start(port), bytes.chunk);
  return bytes;
}

std::vector<std::string> differences(node &node, const port_place &port,
                                     const module_bytes &bytes) {
  const lum_port_data *data = data_of(port);
  if (data == nullptr) return {"the port is lost"};
  comparison all;
  compare_led(node, port, bytes, all);
  compare_readings(*data, bytes, all);
  compare_stores(port, bytes, all);
  return all.found;
}

}  // namespace stress
