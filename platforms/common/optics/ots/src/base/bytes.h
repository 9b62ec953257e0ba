// Wire records: byte arrays with named positions, little-endian words without alignment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace lum {

// Writes `value` at `position`; a value that does not fit in the record is not written.
template <typename T>
void put(std::span<std::uint8_t> record, std::size_t position, T value) {
  if (position > record.size() || record.size() - position < sizeof value) return;
  std::memcpy(record.data() + position, &value, sizeof value);
}

// Reads a value at `position`, 0 when it is not inside the record.
template <typename T>
T get(std::span<const std::uint8_t> record, std::size_t position) {
  T value{};
  if (position > record.size() || record.size() - position < sizeof value) return value;
  std::memcpy(&value, record.data() + position, sizeof value);
  return value;
}

// The big-endian 16-bit value at `position`, 0 when it is not inside the record.
inline std::uint16_t get_be16(std::span<const std::uint8_t> record, std::size_t position) {
  return static_cast<std::uint16_t>(get<std::uint8_t>(record, position) << 8 |
                                    get<std::uint8_t>(record, position + 1));
}

// Sets bits in a little-endian word of `width` bytes.
inline void or_bits(std::span<std::uint8_t> record, std::size_t position, std::size_t width,
                    std::uint64_t bits) {
  for (std::size_t i = 0; i < width; ++i) {
    const auto byte = static_cast<std::uint8_t>(bits >> (8 * i));
    put<std::uint8_t>(record, position + i, get<std::uint8_t>(record, position + i) | byte);
  }
}

// The bytes of a record that is declared as words for its alignment.
template <typename Record>
std::span<std::uint8_t> bytes_of(Record &record) {
  return {reinterpret_cast<std::uint8_t *>(&record), sizeof record};
}

template <typename Record>
std::span<const std::uint8_t> bytes_of(const Record &record) {
  return {reinterpret_cast<const std::uint8_t *>(&record), sizeof record};
}

}  // namespace lum
