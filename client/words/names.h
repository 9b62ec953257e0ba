// What holds for the names in every table of this folder.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace lum_words {

// Stands for everything that a test can be made with.
inline constexpr std::string_view everything = "all";

// The names that a table gives, in its order.
template <typename Row, std::size_t size>
constexpr std::array<std::string_view, size> names_of(const std::array<Row, size> &table) {
  std::array<std::string_view, size> names;
  std::transform(table.begin(), table.end(), names.begin(),
                 [](const Row &row) { return row.name; });
  return names;
}

// The same with what stands for all of them behind them.
template <std::size_t size>
constexpr std::array<std::string_view, size + 1> with_everything(
    const std::array<std::string_view, size> &names) {
  std::array<std::string_view, size + 1> all;
  std::copy(names.begin(), names.end(), all.begin());
  all.back() = everything;
  return all;
}

// The name that a table gives to one of its ids.
template <typename Row, std::size_t size, typename Id>
constexpr std::string_view name_of(const std::array<Row, size> &table, Id id) {
  const auto found =
      std::find_if(table.begin(), table.end(), [id](const Row &row) { return row.id == id; });
  return found == table.end() ? "unknown" : found->name;
}

// What a name is as a member of the driver's JSON: of "p2-setting" that is "p2_setting".
inline std::string member_of(std::string_view name) {
  std::string member(name);
  std::replace(member.begin(), member.end(), '-', '_');
  return member;
}

}  // namespace lum_words
