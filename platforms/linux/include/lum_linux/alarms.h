// What the alarm and counter store holds; the library fills it through ptah.h.
//
// What holds for every call stands in lum_linux/stores.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lum_linux/store_time.h"
#include "ptah.h"

namespace lum_linux {

// What the 55 values count. They stop at the largest 32-bit number.
inline constexpr std::size_t ptah_publishes = 0;
inline constexpr std::size_t ptah_bitmap_changes = 1;
inline constexpr std::size_t ptah_first_raise = 2;  // of bitmap bit 0; bit n is n further on
inline constexpr std::size_t ptah_counted_bits = PTAH_VALUES - ptah_first_raise;

struct ptah_interface {
  uint32_t ifhandle = 0;
  uint32_t iftype = 0;
  std::string name;
  bool enabled = true;
  uint64_t handle = 0;                 // the port's own
  ptah_al_all all{};                   // stored bitmap and counters
  uint64_t published = 0;              // bitmap as last published
  std::optional<store_stamp> changed;  // when the stored bitmap last changed
  std::optional<store_stamp> cleared;  // when the counters were last set back
};

std::vector<ptah_interface> ptah_interfaces();
std::optional<ptah_interface> ptah_find(uint32_t ifhandle);
// Of that, the stored bitmap; 0 for an interface that is not there.
uint64_t ptah_bitmap(uint32_t ifhandle);
void ptah_forget_all();

}  // namespace lum_linux
