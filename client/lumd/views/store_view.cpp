#include "views/store_view.h"
#include "json/object.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace lumd {
namespace {

using lum_client::object;

using lum_linux::record_trouble;

json text_or_null(const std::string &text) { return text.empty() ? json(nullptr) : json(text); }

json show_usability(const lum_linux::checkpoint_status &store) {
  return object(
      {{"usable", store.usable}, {"readable", store.open}, {"reason", text_or_null(store.reason)}});
}

}  // namespace

bool saved_settings_are_known(const lum_linux::checkpoint_status &store, uint32_t rsip) {
  return store.open &&
         std::none_of(store.troubled.begin(), store.troubled.end(), [rsip](const auto &one) {
           return one.key == rsip &&
                  (one.trouble == record_trouble::lost || one.trouble == record_trouble::unread);
         });
}

std::string trouble_name(record_trouble trouble) {
  switch (trouble) {
    case record_trouble::lost:
      return "lost";
    case record_trouble::unread:
      return "unread";
    case record_trouble::unsaved:
      return "unsaved";
    case record_trouble::undeleted:
      return "undeleted";
  }
  return "unknown";
}

json show_store(const lum_linux::checkpoint_status &store,
                const lum_linux::node_description &node) {
  json shown = show_usability(store);
  shown["doubt"] = text_or_null(store.doubt);
  shown["records"] = json::array();
  for (const auto &one : store.troubled) {
    const auto *port = node.find(one.key);
    shown["records"].push_back(object({{"port", port == nullptr ? json(nullptr) : json(port->name)},
                                       {"key", one.key},
                                       {"trouble", trouble_name(one.trouble)},
                                       {"reason", one.reason}}));
  }
  return shown;
}

json show_store_of(const lum_linux::checkpoint_status &store, uint32_t rsip) {
  json shown = show_usability(store);
  shown["troubles"] = json::array();
  for (const auto &one : store.troubled) {
    if (one.key != rsip) continue;
    shown["troubles"].push_back(
        object({{"trouble", trouble_name(one.trouble)}, {"reason", one.reason}}));
  }
  return shown;
}

}  // namespace lumd
