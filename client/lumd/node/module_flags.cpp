#include "node/module_flags.h"

#include <fmt/format.h>

#include <array>

namespace lumd {
namespace {

constexpr std::array<unsigned, 8> places = {9, 10, 11, 12, 13, 64, 70, 49};

struct known_flag {
  unsigned place;
  unsigned bit;
  const char *name;
};

constexpr known_flag known_flags[] = {
    {9, 0, "temperature high alarm"},
    {9, 1, "temperature low alarm"},
    {9, 2, "temperature high warning"},
    {9, 3, "temperature low warning"},
    {9, 4, "supply high alarm"},
    {9, 5, "supply low alarm"},
    {9, 6, "supply high warning"},
    {9, 7, "supply low warning"},
    {10, 1, "sub-port 0 alarm flag-10"},
    {10, 5, "sub-port 1 alarm flag-10"},
    {12, 5, "sub-port 0 alarm flag-12"},
    {12, 1, "sub-port 1 alarm flag-12"},
    {13, 0, "sub-port 0 alarm flag-13 (first)"},
    {13, 1, "sub-port 0 alarm flag-13 (second)"},
    {13, 4, "sub-port 1 alarm flag-13 (first)"},
    {13, 5, "sub-port 1 alarm flag-13 (second)"},
    {64, 5, "sub-port 0 alarm flag-64-high"},
    {64, 4, "sub-port 0 alarm flag-64-low"},
    {64, 1, "sub-port 1 alarm flag-64-high"},
    {64, 0, "sub-port 1 alarm flag-64-low"},
};

// Any bit of it raises the same alarms.
constexpr unsigned all_one_place = 49;

std::string name_of(unsigned place, unsigned bit) {
  for (const known_flag &flag : known_flags) {
    if (flag.place == place && flag.bit == bit) return flag.name;
  }
  return fmt::format("byte {} bit {}", place, bit);
}

}  // namespace

std::span<const unsigned> flag_places() { return places; }

std::vector<std::string> raised_flags(std::span<const uint8_t> flags) {
  std::vector<std::string> raised;
  for (std::size_t i = 0; i < std::min(flags.size(), places.size()); ++i) {
    if (places[i] == all_one_place) {
      if (flags[i] != 0) raised.push_back("sub-port 1 alarms flag-49-a and flag-49-b");
      continue;
    }
    for (unsigned bit = 0; bit < 8; ++bit) {
      if ((flags[i] >> bit & 1) != 0) raised.push_back(name_of(places[i], bit));
    }
  }
  return raised;
}

}  // namespace lumd
