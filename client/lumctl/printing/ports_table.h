// The ports as a table.
#pragma once

#include <string>
#include <vector>

#include "api/json.h"
#include "printing/table.h"

namespace lumctl {

enum class ports_form {
  fitting,  // full for few ports, brief for many, wide where nothing folds
  full,     // some lines for each port
  brief,    // a line for each port
  wide,     // a line for each sub-port, whatever the width
};

struct ports_wish {
  ports_form form = ports_form::fitting;
  std::vector<std::string> columns = {};  // of the brief form; all that there is room for
};

// The table, and what has to be said below it: what it leaves out, why ports are not up, and what
// is wrong with all of them.
struct ports_picture {
  table shown;
  std::string notes;
};

// With what changed since `before` marked, unless that is null.
ports_picture picture_of_ports(const json &answer, const json *before, const ports_wish &wish,
                               const style &output);

std::string describe_ports(const json &answer, const ports_wish &wish, const style &output);

}  // namespace lumctl
