// Where everything stands in a module's memory. Offsets below 128 are of the lower page.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "lum.h"

namespace lum_linux {

struct byte_place {
  uint32_t page;
  uint32_t offset;
};

struct text_place {
  const char *key;
  byte_place at;
  uint32_t size;
  bool is_always_there;  // filled with blanks when the description does not give it
};

inline constexpr std::array<text_place, 7> text_places = {{
    {"vendor", {0, 129}, 16, true},
    {"part", {0, 148}, 16, true},
    {"revision", {0, 164}, 2, true},
    {"serial", {0, 166}, 16, true},
    {"date", {0, 182}, 8, true},
    {"extra_code", {3, 148}, 4, false},
    {"extra_id", {3, 192}, 18, false},
}};

// The words of both sub-ports' thresholds and of their second settings.
inline constexpr uint32_t threshold_page = 2;

inline constexpr byte_place identifier_place{0, 0};
inline constexpr byte_place page_0_identifier_place{0, 128};
inline constexpr byte_place oui_place{0, 145};
inline constexpr byte_place temperature_place{0, 14};
inline constexpr byte_place supply_place{0, 16};
inline constexpr byte_place firmware_place{0, 39};

inline constexpr std::array<uint32_t, 8> flag_offsets = {9, 10, 11, 12, 13, 49, 64, 70};

// The check byte of page 0 and the bytes it is the sum of.
inline constexpr uint32_t checksum_offset = 222;
inline constexpr uint32_t checksum_first = 128;

// The layout page holds what the module reports of its settings: page 3 in the old memory map; in
// the new one page 1, everything 64 bytes further on. Offsets here are those of page 3.
inline constexpr uint32_t old_layout_page = 3;
inline constexpr uint32_t new_layout_page = 1;
inline constexpr uint32_t new_layout_shift = 64;

// A sub-port's readings are powers first, then those that the module gives in tenths.
inline constexpr std::size_t power_count = 3;
inline constexpr std::size_t tenths_count = 2;
inline constexpr std::size_t reading_count = std::extent_v<decltype(lum_dom_area::readings)>;
static_assert(power_count + tenths_count == reading_count, "each reading is of one kind");

struct sub_port_places {
  std::array<uint32_t, reading_count> readings;  // lower page, two bytes each
  std::array<uint32_t, 3> status;                // layout page
  uint32_t setting_a;                            // layout page, two bytes
  uint32_t setting_b;                            // layout page, two bytes
  uint32_t thresholds;                           // threshold page, two bytes each: upper, lower
  uint32_t p2_setting;                           // threshold page, two bytes
};

inline constexpr std::array<sub_port_places, 2> sub_ports_places = {{
    {{18, 45, 68, 43, 47}, {150, 147, 133}, 134, 136, 144, 194},
    {{41, 22, 66, 20, 24}, {150, 146, 128}, 129, 131, 152, 178},
}};
static_assert(std::ranges::none_of(sub_ports_places,
                                   [](const sub_port_places &places) {
                                     return std::ranges::count(places.readings, 0u) != 0;
                                   }),
              "each reading has its place");

}  // namespace lum_linux
