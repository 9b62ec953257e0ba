// What the performance-monitoring store holds; the library fills it through pm_ui.h.
//
// What holds for every call stands in lum_linux/stores.h.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lum_linux/store_time.h"
#include "pm_ui.h"

namespace lum_linux {

// The values of a pm_ui_optics_record, in its order.
enum class pm_value : std::size_t {
  reading_3,
  reading_4_a,
  reading_4_b,
  reading_4_c,
  power_1,
  power_0
};
inline constexpr std::size_t pm_value_count = 6;

struct pm_statistics {
  uint32_t current = 0;  // the latest
  uint32_t minimum = 0;
  uint32_t maximum = 0;
  double average = 0;
};

// One interval of time. Bins start at multiples of their length since the epoch (UTC). A value's
// statistics mean nothing while there are no samples.
struct pm_bin {
  store_time start;
  std::chrono::seconds length{0};
  uint64_t samples = 0;
  // The interface was created, or the clock set, within it: it does not cover all of that time.
  bool partial = false;
  bool tested = false;  // a test has added to values that are in it
  std::array<pm_statistics, pm_value_count> values{};
};

inline constexpr std::chrono::seconds pm_short_bin = std::chrono::minutes(15);
inline constexpr std::chrono::seconds pm_long_bin = std::chrono::hours(24);
inline constexpr std::size_t pm_short_history = 32;  // finished bins kept
inline constexpr std::size_t pm_long_history = 7;

struct pm_interface {
  uint32_t ifhandle = 0;
  uint32_t iftype = 0;
  std::string name;
  std::optional<pm_ui_optics_record> latest;  // absent until there is one
  store_stamp updated;                        // when the latest came
  bool latest_tested = false;                 // a test had added to it
  pm_bin quarter;                             // the current 15 minutes
  pm_bin day;                                 // the current 24 hours
  std::vector<pm_bin> quarters;               // finished bins that had samples, newest first
  std::vector<pm_bin> days;
};

// All interfaces, in the order of their handles.
std::vector<pm_interface> pm_interfaces();
std::optional<pm_interface> pm_find(uint32_t ifhandle);

// Whether a test adds to the values of the interface that are stored from now on. Nothing for an
// unknown interface.
void pm_values_are_tested(uint32_t ifhandle, bool tested);

// A bin that is to outlive the process, of the interface with that name: handles are others then.
struct pm_kept_bin {
  std::string name;
  pm_bin bin;
};

// What differs from what was kept last: bins with more samples, and interfaces that have been
// deleted, whose bins are to be forgotten before those of `bins` are kept.
struct pm_unkept {
  std::vector<pm_kept_bin> bins;
  std::vector<std::string> deleted;
};
pm_unkept pm_not_kept_yet();
// All of that has been kept. Nothing is marked that has changed since.
void pm_mark_kept(const pm_unkept &kept);
// What was kept is lost: all of it is to be kept again.
void pm_mark_nothing_kept();

// Bins that an earlier process kept: those of interfaces that are there are taken in at once, the
// others' when theirs is created. A bin that the interface has too becomes the sum of both. Bins
// that nobody can have kept, such as one that begins in the future, are left out.
void pm_take_back(const std::vector<pm_kept_bin> &earlier);

// Forgets every interface, and what was kept.
void pm_forget_all();

}  // namespace lum_linux
