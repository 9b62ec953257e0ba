// A node's description as single facts, by which two of them can be compared.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lum_linux/node_description.h"

namespace lumd {

struct description_fact {
  std::string name;  // such as "http_names" or "port 0/1/0/3"
  std::string value;
  std::string of;     // the fact that it comes and goes with; empty: it is always there
  bool live = false;  // a running driver takes it over
};
using description_facts = std::vector<description_fact>;

description_facts facts_of(const lum_linux::node_description &node);

struct description_change {
  std::string text;   // "http_names: none -> node7", "port 0/1/0/3 is new"
  bool live = false;  // a running driver takes it over
};

// In the order of what is to be.
std::vector<description_change> changes_between(const description_facts &is,
                                                const description_facts &is_to_be);

// Whether nothing has come or gone, so that what ports are called can be taken over: a name that
// one of them gives up may be another's.
bool has_same_ports(const description_facts &one, const description_facts &other);

}  // namespace lumd
