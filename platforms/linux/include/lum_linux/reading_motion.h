// How a reading of a simulated module moves. docs/module-images.md has the keys.
#pragma once

#include <cstdint>

namespace lum_linux {

// What a word of a module's memory counts.
enum class word_unit {
  power,        // hundredths of a dBm
  tenths,       // of the reading's unit
  temperature,  // 1/256 of a degree Celsius
  supply,       // 100 microvolts
};

// All amounts in the reading's own unit: dBm (so decibels), degrees Celsius, volts. All times in
// seconds since the module was put in.
struct reading_motion {
  uint32_t offset = 0;  // of the reading's word in the lower page
  word_unit unit = word_unit::power;
  uint32_t seed = 1;
  double noise = 0;  // at most so much either way, drawn anew each second
  double drift_per_hour = 0;
  double swing = 0;  // so much either way within each period
  double period_s = 0;
  double step = 0;  // for a while, or for good
  double step_after_s = 0;
  double step_for_s = 0;    // 0: for good
  double step_every_s = 0;  // from the beginning of a step to that of the next; 0: but one

  bool operator==(const reading_motion &) const = default;
};

// How far the reading is off where it stands, after so many seconds. The same motion gives the same
// at the same time, on every machine.
double displacement(const reading_motion &motion, double seconds);

// The word of a reading that is so far off the one of `word`; at most what a word can hold.
uint16_t displaced_word(word_unit unit, uint16_t word, double amount);

}  // namespace lum_linux
