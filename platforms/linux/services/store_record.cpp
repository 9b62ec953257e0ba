#include "services/store_record.h"

#include <array>
#include <boost/crc.hpp>
#include <cstdio>

namespace lum_linux {
namespace {

template <typename Number>
void add(boost::crc_32_type &crc, Number number) {
  for (size_t byte = 0; byte < sizeof number; ++byte) {
    crc.process_byte(static_cast<unsigned char>(number >> 8 * byte));
  }
}

}  // namespace

std::string name_of(const record_key &record) {
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), "record 0x%08x of table %u", record.key, record.kind);
  return text.data();
}

uint32_t record_checksum(const record_key &record, uint32_t version, uint64_t change,
                         std::span<const std::byte> data) {
  boost::crc_32_type crc;
  add(crc, record.kind);
  add(crc, record.key);
  add(crc, version);
  add(crc, change);
  crc.process_bytes(data.data(), data.size());
  return crc.checksum();
}

uint32_t data_checksum(std::span<const std::byte> data) {
  boost::crc_32_type crc;
  crc.process_bytes(data.data(), data.size());
  return crc.checksum();
}

}  // namespace lum_linux
