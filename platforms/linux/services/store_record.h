// What a record of the checkpoint store is known by, and what tells that it is whole.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace lum_linux {

struct record_key {
  uint32_t kind = 0;  // the table's
  uint32_t key = 0;
  // The 0 is in what the compiler makes of it.
  auto operator<=>(const record_key &) const = default;  // NOLINT(modernize-use-nullptr)
};

// As it is called in what is told.
std::string name_of(const record_key &record);

// Over the data and all they belong to, so that neither stands for another record or change.
uint32_t record_checksum(const record_key &record, uint32_t version, uint64_t change,
                         std::span<const std::byte> data);

// Over the data alone, as stores of the first schema have it.
uint32_t data_checksum(std::span<const std::byte> data);

}  // namespace lum_linux
