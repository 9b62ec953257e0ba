// The module in a port, for people.
#pragma once

#include <string>

#include "api/json.h"
#include "terminal/style.h"

namespace lumctl {

constexpr const char *not_plausible = "  ? not plausible";

// Who made it, what it measures of itself, what is said of its transfers, and a page of its memory
// where there is one.
std::string describe_module(const json &port, const style &where);

// Parts of it: lines of a title and a value each. `whole` is with what only experts ask for.
std::string describe_module_identity(const json &port, bool whole);
std::string describe_condition(const json &port, bool whole);
std::string describe_transfers(const json &module);

// What a decoded dump has of them too: the whole of the vendor's fields, temperature and supply,
// flags, and which memory map it is, to stand behind the firmware.
std::string describe_vendor(const json &vendor);
std::string describe_levels(const json &shown);
std::string describe_flag_lines(const json &shown, bool whole);
std::string describe_memory_map(const json &is_new);

}  // namespace lumctl
