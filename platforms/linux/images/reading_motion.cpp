#include "lum_linux/reading_motion.h"

#include <numbers>

#include "images/reading_words.h"

namespace lum_linux {
namespace {

// From -1 to 1, of the second: the finishing steps of a 64-bit mixer over seed, place and time.
double drawn(const reading_motion &motion, double seconds) {
  constexpr uint64_t spread = 0x9E3779B97F4A7C15;
  uint64_t mixed = (uint64_t{motion.seed} << 32 | motion.offset) +
                   spread * (1 + static_cast<uint64_t>(std::floor(std::max(seconds, 0.0))));
  mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9;
  mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EB;
  mixed ^= mixed >> 31;
  constexpr double values = uint64_t{1} << 53;
  return 2 * static_cast<double>(mixed >> 11) / values - 1;
}

bool is_in_step(const reading_motion &motion, double seconds) {
  if (seconds < motion.step_after_s) return false;
  if (motion.step_for_s <= 0) return true;
  const double since = seconds - motion.step_after_s;
  return (motion.step_every_s > 0 ? std::fmod(since, motion.step_every_s) : since) <
         motion.step_for_s;
}

}  // namespace

double displacement(const reading_motion &motion, double seconds) {
  constexpr double hour_s = 3600;
  double amount = motion.drift_per_hour * seconds / hour_s;
  if (motion.noise > 0) amount += motion.noise * drawn(motion, seconds);
  if (motion.period_s > 0) {
    amount += motion.swing * std::sin(2 * std::numbers::pi * seconds / motion.period_s);
  }
  if (is_in_step(motion, seconds)) amount += motion.step;
  return amount;
}

uint16_t displaced_word(word_unit unit, uint16_t from, double amount) {
  switch (unit) {
    case word_unit::power:
      return power_word(std::clamp(power_of(from) + amount, min_dbm, max_dbm));
    case word_unit::tenths:
      return word(std::clamp(from + amount * steps_of_tenths, 0.0, max_word));
    case word_unit::temperature:
      return signed_word(steps_per_degree *
                         std::clamp(static_cast<int16_t>(from) / steps_per_degree + amount,
                                    min_celsius, max_celsius));
    case word_unit::supply:
      return word(std::clamp(from + amount * steps_per_volt, 0.0, max_word));
  }
  return from;
}

}  // namespace lum_linux
