// A port's values as cells of tables.
#pragma once

#include "api/json.h"
#include "printing/table.h"

namespace lumctl {

// A text of the port, for the terminal; "-" when there is none.
std::string text_or_dash(const json &value);
// A number with so many digits behind the point; "-" for null.
std::string number_or_dash(const json &value, int digits);

cell state_cell(const json &port);
cell led_cell(const json &port);
cell dom_cell(const json &port);
std::string firmware_text(const json &port);

// The module's last readings are not of now.
bool has_old_readings(const json &port);
// How long ago they were polled, in seconds.
cell age_cell(const json &port);

// Stands behind what the module cannot have measured.
constexpr const char *implausible_mark = "?";
bool is_implausible(const json &port, const char *name);
// The line that explains it, with what a module can have measured.
std::string describe_mark();
// The module's own temperature or supply.
cell word_cell(const json &port, const char *name, int digits);

// "0x08000001", or "-" for a controller that is not there.
std::string handle_text(const json &sub_port);
// The readings, "-" each when there are none.
std::vector<cell> reading_cells(const json &port, const json &sub_port);
std::vector<column> reading_columns();

}  // namespace lumctl
