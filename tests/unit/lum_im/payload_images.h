// Blocks and elements as tables of members, to hold against the bytes that are sent.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "controllers.h"

using bytes = std::vector<uint8_t>;

inline bytes bytes_of(const lum_controller_attrs &attrs) {
  return {std::begin(attrs.bytes), std::end(attrs.bytes)};
}

inline lum_controller_attrs filled_with(uint8_t filler) {
  lum_controller_attrs attrs;
  std::fill(std::begin(attrs.bytes), std::end(attrs.bytes), filler);
  return attrs;
}

inline lum_controller_attrs capabilities_of(int32_t sub_port) {
  lum_controller_attrs attrs = filled_with(0);
  lum_init_controller_capabilities(&attrs, sub_port);
  return attrs;
}

struct member {
  std::size_t position;
  std::size_t width;
  int64_t value;
};

inline bytes image(std::size_t size, const std::vector<member> &members) {
  bytes image(size);
  for (const member &m : members) {
    support::put_number(image, m.position, m.width, static_cast<uint64_t>(m.value));
  }
  return image;
}

// Where two images differ, to read in a failure.
inline std::vector<std::string> differences(const bytes &seen, const bytes &expected) {
  std::vector<std::string> found;
  if (seen.size() != expected.size()) return {"size " + std::to_string(seen.size())};
  for (std::size_t i = 0; i < seen.size(); ++i) {
    if (seen[i] == expected[i]) continue;
    found.push_back(std::to_string(i) + ": " + std::to_string(seen[i]) + " instead of " +
                    std::to_string(expected[i]));
  }
  return found;
}

// ---- Capabilities ----

inline const std::vector<member> common_capabilities = {
    {4, 2, -300},  {6, 2, 170},  {8, 2, -300},  {10, 2, -50}, {12, 2, 190}, {20, 4, 1},
    {25, 1, 1},    {68, 1, 1},   {70, 2, 170},  {92, 1, 1},   {96, 2, -50}, {98, 2, 190},
    {156, 1, 1},   {160, 4, 2},  {164, 4, 12},  {168, 1, 1},  {281, 1, 1},  {360, 4, 0},
    {480, 1, 1},   {828, 4, 1},  {840, 2, 250}, {844, 1, 1},  {889, 1, 0},  {890, 1, 1},
    {906, 2, 170}, {908, 2, 80}, {910, 1, 1},   {1445, 1, 1}, {1446, 1, 1},
};
inline const std::vector<member> sub_port_0_capabilities = {
    {838, 2, 30}, {842, 2, 200}, {904, 2, 10}};
inline const std::vector<member> sub_port_1_capabilities = {
    {838, 2, 70}, {842, 2, 210}, {880, 4, 1}, {888, 1, 1}, {904, 2, 0}};

inline std::vector<member> joined(std::initializer_list<std::vector<member>> lists) {
  std::vector<member> all;
  for (const auto &list : lists) all.insert(all.end(), list.begin(), list.end());
  return all;
}

inline std::vector<member> capabilities_at(uint32_t sub_port) {
  return joined(
      {common_capabilities, sub_port == 1 ? sub_port_1_capabilities : sub_port_0_capabilities});
}
