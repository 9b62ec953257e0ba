// What can stand in a table with a line a port, by the names that --columns and --sort take.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "api/json.h"
#include "printing/table.h"

namespace lumctl {

struct port_column {
  std::string name;
  column shown;
  std::function<cell(const json &port)> cell_of;
  // What a column of numbers is sorted by; nothing where it is not known. Texts have none.
  std::function<std::optional<double>(const json &port)> number_of = {};
  // Columns of the lowest rank are the last to be left out; those without one stand only where they
  // are asked for.
  std::optional<unsigned> rank = {};
  bool is_name = false;  // may be shortened where there is little room
};

// In the order in which they stand.
const std::vector<port_column> &port_columns();
std::vector<std::string> port_column_names();
const port_column *find_port_column(std::string_view name);

// Alarms raised on both sub-ports together; nothing while those of one are not known.
std::optional<unsigned> alarms_raised(const json &port);

}  // namespace lumctl
