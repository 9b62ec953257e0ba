#include "views/description_view.h"

#include <nlohmann/json.hpp>

#include "node/driver.h"

namespace lumd {

json show_description(driver &node) {
  json facts = json::array();
  for (const description_fact &fact : node.described().facts()) {
    facts.push_back({{"name", fact.name},
                     {"value", fact.value},
                     {"of", fact.of.empty() ? json(nullptr) : json(fact.of)},
                     {"live", fact.live}});
  }
  return {{"file", node.node().source.native()}, {"facts", std::move(facts)}};
}

description_facts facts_in(const json &shown) {
  description_facts facts;
  for (const json &one : shown.at("facts")) {
    description_fact fact;
    fact.name = one.at("name").get<std::string>();
    fact.value = one.at("value").get<std::string>();
    if (one.at("of").is_string()) fact.of = one.at("of").get<std::string>();
    fact.live = one.at("live").get<bool>();
    facts.push_back(std::move(fact));
  }
  return facts;
}

}  // namespace lumd
