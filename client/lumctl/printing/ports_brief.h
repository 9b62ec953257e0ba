// Ports with a line each.
#pragma once

#include <string>
#include <vector>

#include "api/json.h"
#include "printing/port_columns.h"
#include "printing/table.h"

namespace lumctl {

// The columns of these names or, where there are none, all that have a rank.
std::vector<const port_column *> brief_columns(const std::vector<std::string> &names);

table lay_out_brief(const json &ports, const std::vector<const port_column *> &columns);

// Leaves out what there is no room for and shortens names, and returns the lines that say so.
std::string fit_brief(table &shown, std::vector<const port_column *> columns, const style &output);

// Why ports are not up, those with one reason together.
std::string describe_reasons(const json &ports, const style &output);

}  // namespace lumctl
