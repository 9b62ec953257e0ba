#include "decode/checksums.h"

#include <algorithm>
#include <array>

#include "images/image_places.h"

namespace lumctl {
namespace {

// The codes of SFF-8024 whose modules have their memory in pages of 128 bytes.
constexpr auto identifiers = std::to_array<known_identifier>({
    {0x0C, "QSFP", memory_standard::sff_8636},
    {0x0D, "QSFP+", memory_standard::sff_8636},
    {0x11, "QSFP28", memory_standard::sff_8636},
    {0x18, "QSFP-DD", memory_standard::cmis},
    {0x19, "OSFP 8X", memory_standard::cmis},
    {0x1B, "DSFP", memory_standard::cmis},
    {0x1E, "QSFP+ with CMIS", memory_standard::cmis},
    {0x1F, "SFP-DD with CMIS", memory_standard::cmis},
    {0x20, "SFP+ with CMIS", memory_standard::cmis},
});

constexpr auto sff_8636_checks = std::to_array<check_byte>({
    {"page 0 base", 0, 128, 190, 191},
    {"page 0 extension", 0, 192, 222, 223},
});

constexpr auto cmis_checks = std::to_array<check_byte>({
    {"page 0", 0, lum_linux::checksum_first, lum_linux::checksum_offset - 1,
     lum_linux::checksum_offset},
    {"page 1", 1, 130, 254, 255},
    {"page 2", 2, 128, 254, 255},
});

// Set in lower byte 2: there is page 0 and no other.
constexpr std::uint32_t memory_model_place = 2;
constexpr unsigned cmis_flat = 0x80;

}  // namespace

const known_identifier *find_identifier(std::uint8_t code) {
  const auto found = std::find_if(identifiers.begin(), identifiers.end(),
                                  [code](const known_identifier &one) { return one.code == code; });
  return found == identifiers.end() ? nullptr : &*found;
}

std::string_view name_of(memory_standard standard) {
  switch (standard) {
    case memory_standard::sff_8636:
      return "SFF-8636";
    case memory_standard::cmis:
      return "CMIS";
    case memory_standard::unknown:
      break;
  }
  return "unknown";
}

std::vector<check_byte> check_bytes(memory_standard standard, const memory_dump &dump) {
  if (standard == memory_standard::unknown) return {};
  if (standard == memory_standard::sff_8636)
    return {sff_8636_checks.begin(), sff_8636_checks.end()};
  std::vector<check_byte> checks(cmis_checks.begin(), cmis_checks.end());
  if ((dump.byte(0, memory_model_place).value_or(0) & cmis_flat) != 0) {
    std::erase_if(checks, [](const check_byte &check) { return check.page != 0; });
  }
  return checks;
}

std::optional<std::uint8_t> sum_of(const check_byte &check, const memory_dump &dump) {
  unsigned sum = 0;
  for (std::uint32_t offset = check.first; offset <= check.last; ++offset) {
    const auto byte = dump.byte(check.page, offset);
    if (!byte) return std::nullopt;
    sum += *byte;
  }
  return static_cast<std::uint8_t>(sum);
}

bool is_blank(const check_byte &check, const memory_dump &dump) {
  for (std::uint32_t offset = check.first; offset <= check.last; ++offset) {
    if (dump.byte(check.page, offset) != std::uint8_t{0}) return false;
  }
  return dump.byte(check.page, check.place) == std::uint8_t{0};
}

}  // namespace lumctl
