#include "node/interface_names.h"

#include <fmt/format.h>

#include <array>
#include <charconv>

#include "imc.h"
#include "lum.h"
#include "lum_linux/node_description.h"

namespace lumd {
namespace {

constexpr std::string_view prefix = "Ots";

// Takes the number that the text begins with off it.
bool take_number(std::string_view &text, uint32_t &number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number > 0xFF) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

}  // namespace

std::string interface_name(const controller_place &place) {
  const uint32_t rsip = place.rsip;
  return fmt::format("{}{}_{}_{}_{}_{}", prefix, rsip >> 24, rsip >> 16 & 0xFF, rsip >> 8 & 0xFF,
                     rsip & 0xFF, place.sub_port);
}

std::optional<controller_place> read_interface_name(std::string_view name) {
  if (name.size() >= LUM_IFNAME_SIZE || !name.starts_with(prefix)) return std::nullopt;
  name.remove_prefix(prefix.size());
  std::array<uint32_t, 5> numbers = {};
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (i > 0) {
      if (!name.starts_with('_')) return std::nullopt;
      name.remove_prefix(1);
    }
    if (!take_number(name, numbers[i])) return std::nullopt;
  }
  if (!name.empty()) return std::nullopt;
  return controller_place{lum_linux::make_rsip(numbers[0], numbers[1], numbers[2], numbers[3]),
                          numbers[4]};
}

std::string reason_against_interface(const std::string &name) {
  if (name.size() >= LUM_IFNAME_SIZE) return "the interface's name is too long";
  imc_ifname_info info = {};
  if (imc_ifname_parse(name.c_str(), 0, &info) != 0 || info.sub_port_valid != 0) return {};
  return fmt::format("the interface \"{}\" has no sub-port, expected a name such as Ots0_1_0_3_1",
                     name.c_str());
}

}  // namespace lumd
