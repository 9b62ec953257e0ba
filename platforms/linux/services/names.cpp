// Interface names and node identifiers.
#include "lum_linux/names.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>

#include "imc.h"

namespace {

constexpr size_t longest_name = 63;
constexpr size_t longest_type = sizeof imc_ifname_info::type - 1;

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

cerrno refuse() {
  errno = EINVAL;
  return EINVAL;
}

}  // namespace

namespace lum_linux {

std::optional<interface_name> parse_interface_name(std::string_view name) {
  if (name.size() > longest_name) return std::nullopt;
  name_reader reader(name);
  const std::string_view type = reader.letters();
  if (type.empty() || type.size() > longest_type) return std::nullopt;
  const auto rack = reader.number();
  const auto slot = reader.number_after_underscore();
  const auto instance = reader.number_after_underscore();
  const auto port = reader.number_after_underscore();
  if (!rack || !slot || !instance || !port) return std::nullopt;
  interface_name parsed{type, *rack, *slot, *instance, *port, std::nullopt};
  if (reader.at_end()) return parsed;
  parsed.sub_port = reader.number_after_underscore();
  if (!parsed.sub_port || !reader.at_end()) return std::nullopt;
  return parsed;
}

std::string ots_interface_name(uint32_t rsip, uint32_t sub_port) {
  std::string name = "Ots" + std::to_string(rsip >> 24);
  for (const uint32_t number : {rsip >> 16 & 0xff, rsip >> 8 & 0xff, rsip & 0xff, sub_port}) {
    name += '_' + std::to_string(number);
  }
  return name;
}

}  // namespace lum_linux

cerrno imc_ifname_parse(const char *ifname, uint32_t flags, imc_ifname_info *info) {
  if (ifname == nullptr || info == nullptr || flags != 0) return refuse();
  const auto parsed = lum_linux::parse_interface_name({ifname, strnlen(ifname, longest_name + 1)});
  if (!parsed) return refuse();
  *info = {};
  parsed->type.copy(info->type, longest_type);
  info->rack = parsed->rack;
  info->slot = parsed->slot;
  info->instance = parsed->instance;
  info->port = parsed->port;
  info->sub_port_valid = parsed->sub_port ? 1 : 0;
  info->sub_port = parsed->sub_port.value_or(0);
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
