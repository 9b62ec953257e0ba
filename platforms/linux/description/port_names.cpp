#include "description/port_names.h"

#include <fmt/format.h>

#include <map>

namespace lum_linux {
namespace {

struct meaning {
  const port_name *port = nullptr;
  const char *relation = "";
};

// What every text means but the names themselves.
std::map<std::string, meaning> meanings_of(const std::vector<port_name> &names) {
  std::map<std::string, meaning> meanings;
  for (const port_name &one : names) {
    if (!one.position.empty()) meanings.emplace(one.position, meaning{&one, "the position of"});
    for (const std::string &whole : {one.name, one.position}) {
      if (whole.empty()) continue;
      meanings.emplace(whole + ":0", meaning{&one, "sub-port 0 of"});
      meanings.emplace(whole + ":1", meaning{&one, "sub-port 1 of"});
    }
  }
  return meanings;
}

}  // namespace

void port_names::refuse_ambiguous(problem_list &problems) const {
  const auto meanings = meanings_of(all_);
  for (const port_name &one : all_) {
    const auto found = meanings.find(one.name);
    if (found == meanings.end() || found->second.port->name == one.name) continue;
    const port_name &other = *found->second.port;
    problems.add(one.line, fmt::format("port name '{}' is also {} port '{}', named in line {}; "
                                       "expected a name that means one port",
                                       one.name, found->second.relation, other.name, other.line));
  }
}

}  // namespace lum_linux
