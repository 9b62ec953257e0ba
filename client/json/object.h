// Objects of the documents, put together at the least cost.
#pragma once

#include <initializer_list>

#include "json/document.h"

namespace lum_client {

struct member {
  const char *name;
  mutable nlohmann::ordered_json value;  // a list's members are constant, and are moved out of it
};

// An object of these, each name once: object({{"slot", 1}, {"port", 3}}). A document's own list in
// braces makes and destroys an array of each member.
inline nlohmann::ordered_json object(std::initializer_list<member> members) {
  using document = nlohmann::ordered_json;
  document made = document::object();
  document::object_t::Container &into = made.get_ref<document::object_t &>();
  into.reserve(members.size());
  for (const member &one : members) into.emplace_back(one.name, std::move(one.value));
  return made;
}

}  // namespace lum_client
