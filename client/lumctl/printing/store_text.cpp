#include "printing/store_text.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/port_cells.h"

namespace lumctl {
namespace {

bool is_usable(const json &store) { return store.at("usable").get<bool>(); }

// What a store that is not usable means for the settings.
std::string describe_unusable(const json &store) {
  const char *const what = store.at("readable").get<bool>()
                               ? "saved settings can be read, changes are not kept: "
                               : "settings are not kept, it cannot be used: ";
  return what + text_or_dash(store.at("reason"));
}

std::string words_for(const json &trouble) {
  const std::string name = trouble.get<std::string>();
  if (name == "unread") return "not read";
  if (name == "unsaved") return "not saved";
  if (name == "undeleted") return "not deleted";
  return text_or_dash(trouble);
}

std::string describe_trouble(const json &one) {
  return fmt::format("{}: {}", words_for(one.at("trouble")), text_or_dash(one.at("reason")));
}

}  // namespace

std::string describe_node_store(const json &store) {
  std::string text;
  if (!is_usable(store)) {
    text += line("Store", describe_unusable(store));
  }
  if (!store.at("doubt").is_null()) text += line("Store", text_or_dash(store.at("doubt")));
  for (const json &one : store.at("records")) {
    const std::string whose = one.at("port").is_null()
                                  ? fmt::format("key 0x{:08x}", one.at("key").get<std::uint32_t>())
                                  : text_or_dash(one.at("port"));
    text += line("Settings", fmt::format("{}: {}", whose, describe_trouble(one)));
  }
  return text;
}

std::string describe_port_store(const json &store) {
  std::string text;
  if (!is_usable(store)) {
    text += line("Store", describe_unusable(store));
  }
  for (const json &one : store.at("troubles")) text += line("Settings", describe_trouble(one));
  return text;
}

std::string describe_missing_store(const json &store) {
  if (is_usable(store)) return {};
  return fmt::format("Store: {}\n", describe_unusable(store));
}

}  // namespace lumctl
