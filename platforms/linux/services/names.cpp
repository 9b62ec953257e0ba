// Interface names, <letters><rack>_<slot>_<instance>_<port>[_<sub-port>], and node identifiers.
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>
#include <system_error>

#include "imc.h"

namespace {

constexpr size_t longest_name = 63;

constexpr bool is_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// Takes a name apart from its front.
class name_reader {
 public:
  explicit name_reader(std::string_view rest) : rest_(rest) {}

  std::string_view letters() {
    size_t length = 0;
    while (length < rest_.size() && is_letter(rest_[length])) ++length;
    const std::string_view found = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return found;
  }

  // Decimal digits only, and within 32 bits.
  std::optional<uint32_t> number() {
    uint32_t value = 0;
    const char *end = rest_.data() + rest_.size();
    const auto [stop, error] = std::from_chars(rest_.data(), end, value);
    if (error != std::errc()) return std::nullopt;
    rest_ = std::string_view(stop, static_cast<size_t>(end - stop));
    return value;
  }

  std::optional<uint32_t> number_after_underscore() {
    if (at_end() || rest_.front() != '_') return std::nullopt;
    rest_.remove_prefix(1);
    return number();
  }

  bool at_end() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

std::optional<imc_ifname_info> parse(std::string_view name) {
  imc_ifname_info info = {};
  name_reader reader(name);
  const std::string_view type = reader.letters();
  if (type.empty() || type.size() >= sizeof info.type) return std::nullopt;
  std::memcpy(info.type, type.data(), type.size());

  const auto rack = reader.number();
  const auto slot = reader.number_after_underscore();
  const auto instance = reader.number_after_underscore();
  const auto port = reader.number_after_underscore();
  if (!rack || !slot || !instance || !port) return std::nullopt;
  info.rack = *rack;
  info.slot = *slot;
  info.instance = *instance;
  info.port = *port;
  if (reader.at_end()) return info;

  const auto sub_port = reader.number_after_underscore();
  if (!sub_port || !reader.at_end()) return std::nullopt;
  info.sub_port_valid = 1;
  info.sub_port = *sub_port;
  return info;
}

cerrno refuse() {
  errno = EINVAL;
  return EINVAL;
}

}  // namespace

cerrno imc_ifname_parse(const char *ifname, uint32_t flags, imc_ifname_info *info) {
  if (ifname == nullptr || info == nullptr || flags != 0) return refuse();
  const size_t length = strnlen(ifname, longest_name + 1);
  if (length > longest_name) return refuse();
  const auto parsed = parse(std::string_view(ifname, length));
  if (!parsed) return refuse();
  *info = *parsed;
  return 0;
}

// Racks and slots are plain numbers on this platform.
cerrno nodeid_extract_slot_fields(uint32_t rack_field, uint32_t slot_field, uint32_t *rack_out,
                                  uint32_t *slot_out) {
  if (rack_out == nullptr || slot_out == nullptr) return refuse();
  *rack_out = rack_field;
  *slot_out = slot_field;
  return 0;
}

void nodeid_inst_to_SPAid(uint32_t instance_field, uint32_t *instance_out) {
  if (instance_out != nullptr) *instance_out = instance_field;
}
