// Wire records: byte arrays with named positions, little-endian words without alignment.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

namespace lum {

// A record of a size that the compiler knows, so that it can tell a position that is not inside.
template <std::size_t Size>
using record_of = std::span<std::uint8_t, Size>;
template <std::size_t Size>
using const_record_of = std::span<const std::uint8_t, Size>;

constexpr bool is_inside(std::size_t size, std::size_t position, std::size_t width) {
  return position <= size && size - position >= width;
}

// Writes and reads a value at a position inside the record.
template <std::size_t Position, typename T, std::size_t Size>
void put(record_of<Size> record, std::type_identity_t<T> value) {
  static_assert(is_inside(Size, Position, sizeof(T)), "the position is not inside the record");
  std::memcpy(record.data() + Position, &value, sizeof value);
}

template <std::size_t Position, typename T, std::size_t Size>
T get(const_record_of<Size> record) {
  static_assert(is_inside(Size, Position, sizeof(T)), "the position is not inside the record");
  T value;
  std::memcpy(&value, record.data() + Position, sizeof value);
  return value;
}

template <std::size_t Position, typename T, std::size_t Size>
T get(record_of<Size> record) {
  return get<Position, T>(const_record_of<Size>(record));
}

// The big-endian 16-bit value at a position that is looked up; it is inside the record.
template <std::size_t Size>
std::uint16_t get_be16(const std::array<std::uint8_t, Size> &record, std::size_t position) {
  return static_cast<std::uint16_t>(record.at(position) << 8 | record.at(position + 1));
}

// Sets bits in a little-endian word of `width` bytes inside the record.
inline void or_bits(std::span<std::uint8_t> record, std::size_t position, std::size_t width,
                    std::uint64_t bits) {
  for (std::size_t i = 0; i < width; ++i) {
    record[position + i] |= static_cast<std::uint8_t>(bits >> (8 * i));
  }
}

// The bytes of a record that is declared as words for its alignment.
template <typename Record>
record_of<sizeof(Record)> bytes_of(Record &record) {
  return record_of<sizeof(Record)>(reinterpret_cast<std::uint8_t *>(&record), sizeof record);
}

template <typename Record>
const_record_of<sizeof(Record)> bytes_of(const Record &record) {
  return const_record_of<sizeof(Record)>(reinterpret_cast<const std::uint8_t *>(&record),
                                         sizeof record);
}

}  // namespace lum
