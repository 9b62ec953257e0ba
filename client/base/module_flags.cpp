#include "base/module_flags.h"

#include <fmt/format.h>

#include <array>

#include "words/alarms.h"

namespace lum_client {
namespace {

using lum_words::alarm_id;
using lum_words::alarms;

constexpr std::array<unsigned, 8> places = {9, 10, 11, 12, 13, 64, 70, 49};

struct known_flag {
  unsigned place;
  unsigned bit;
  const char *name;
};

constexpr known_flag known_flags[] = {
    {9, 0, "temperature high alarm"},   {9, 1, "temperature low alarm"},
    {9, 2, "temperature high warning"}, {9, 3, "temperature low warning"},
    {9, 4, "supply high alarm"},        {9, 5, "supply low alarm"},
    {9, 6, "supply high warning"},      {9, 7, "supply low warning"},
};

struct alarm_flag {
  unsigned place;
  unsigned bit;
  unsigned sub_port;
  alarm_id alarm;
  const char *which = "";  // where several raise one alarm
};

constexpr alarm_flag alarm_flags[] = {
    {10, 1, 0, alarm_id::flag_10},
    {10, 5, 1, alarm_id::flag_10},
    {12, 5, 0, alarm_id::flag_12},
    {12, 1, 1, alarm_id::flag_12},
    {13, 0, 0, alarm_id::flag_13, " (first)"},
    {13, 1, 0, alarm_id::flag_13, " (second)"},
    {13, 4, 1, alarm_id::flag_13, " (first)"},
    {13, 5, 1, alarm_id::flag_13, " (second)"},
    {64, 5, 0, alarm_id::flag_64_high},
    {64, 4, 0, alarm_id::flag_64_low},
    {64, 1, 1, alarm_id::flag_64_high},
    {64, 0, 1, alarm_id::flag_64_low},
};

// Any bit of it raises the same alarms.
constexpr unsigned all_one_place = 49;

std::string flag_name(unsigned place, unsigned bit) {
  for (const known_flag &flag : known_flags) {
    if (flag.place == place && flag.bit == bit) return flag.name;
  }
  for (const alarm_flag &flag : alarm_flags) {
    if (flag.place != place || flag.bit != bit) continue;
    return fmt::format("sub-port {} alarm {}{}", flag.sub_port, name_of(alarms, flag.alarm),
                       flag.which);
  }
  return fmt::format("byte {} bit {}", place, bit);
}

}  // namespace

std::span<const unsigned> flag_places() { return places; }

std::vector<std::string> raised_flags(std::span<const uint8_t> flags) {
  std::vector<std::string> raised;
  for (std::size_t i = 0; i < std::min(flags.size(), places.size()); ++i) {
    if (places[i] == all_one_place) {
      if (flags[i] == 0) continue;
      raised.push_back(fmt::format("sub-port 1 alarms {} and {}",
                                   name_of(alarms, alarm_id::flag_49_a),
                                   name_of(alarms, alarm_id::flag_49_b)));
      continue;
    }
    for (unsigned bit = 0; bit < 8; ++bit) {
      if ((flags[i] >> bit & 1) != 0) raised.push_back(flag_name(places[i], bit));
    }
  }
  return raised;
}

}  // namespace lum_client
