// Which ports are shown, in which order and how.
#pragma once

#include <string>
#include <vector>

#include "api/client.h"
#include "api/json.h"
#include "command_line/command.h"
#include "printing/ports_table.h"

namespace lumctl {

struct port_selection {
  std::vector<std::string> names = {};   // or positions; empty: all
  std::vector<std::string> states = {};  // empty: all
  std::string place = {};                // SLOT or SLOT/INSTANCE; empty: all
  bool also_absent = false;              // ports that are described but do not exist
  std::string filter = {};               // a part of something that is shown of the port
  std::string order = {};                // empty: the driver's
  bool reversed = false;

  bool is_partial() const;
};

// The argument and the options that say so.
argument selected_names();
std::vector<option> selection_options();
port_selection selection_of(const given &words);

// In which form they are shown, and what is wrong where more than one is asked for.
std::vector<option> form_options();
std::string form_given_twice(const given &words);
ports_wish wish_of(const given &words);

// The ports that were asked for, as the driver answers /v1/ports. Refused when it knows one of the
// names not.
api_result ask_for_ports(const session &now, const port_selection &wanted);

// Keeps those of an answer's "ports", and sorts them. Returns how many there were.
std::size_t select_ports(json &answer, const port_selection &wanted);

// The line that says that of so many none is left; nothing where some are.
std::string describe_selection(const json &answer, const port_selection &wanted, std::size_t of);

}  // namespace lumctl
