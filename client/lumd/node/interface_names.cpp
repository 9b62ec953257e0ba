#include "node/interface_names.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "lum.h"
#include "lum_linux/names.h"
#include "lum_linux/node_description.h"

namespace lumd {

std::string interface_name(const controller_place &place) {
  return lum_linux::ots_interface_name(place.rsip, place.sub_port);
}

std::optional<controller_place> read_interface_name(std::string_view name) {
  const auto parsed = lum_linux::parse_interface_name(name);
  if (!parsed || parsed->type != "Ots" || !parsed->sub_port) return std::nullopt;
  const std::array numbers = {parsed->rack, parsed->slot, parsed->instance, parsed->port,
                              *parsed->sub_port};
  if (*std::max_element(numbers.begin(), numbers.end()) > 0xFF) return std::nullopt;
  return controller_place{
      lum_linux::make_rsip(parsed->rack, parsed->slot, parsed->instance, parsed->port),
      *parsed->sub_port};
}

std::string reason_against_interface(const std::string &name) {
  if (name.size() >= LUM_IFNAME_SIZE) return "the interface's name is too long";
  // As the library gets it, which is up to a NUL.
  const auto parsed = lum_linux::parse_interface_name(name.c_str());
  if (!parsed || parsed->sub_port) return {};
  return fmt::format("the interface \"{}\" has no sub-port, expected a name such as Ots0_1_0_3_1",
                     name.c_str());
}

}  // namespace lumd
