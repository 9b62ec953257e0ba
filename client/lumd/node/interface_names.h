// The names that the interface manager, the library and entity agents know controllers by.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lumd {

struct controller_place {
  uint32_t rsip = 0;
  uint32_t sub_port = 0;
};

// "Ots0_1_0_3_1"
std::string interface_name(const controller_place &place);

// The place that such a name says; nothing for another text. Each number is 0 to 255.
std::optional<controller_place> read_interface_name(std::string_view name);

// Why an entity agent's name must not reach the library, which ends the process over some; empty
// when it may.
std::string reason_against_interface(const std::string &name);

}  // namespace lumd
