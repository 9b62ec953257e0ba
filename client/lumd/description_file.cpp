#include "description_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>
#include <tuple>
#include <utility>

#include "api/client.h"
#include "api/http_server.h"
#include "base/output.h"
#include "base/printable.h"
#include "exposure.h"
#include "lum_linux/image.h"
#include "node/driver.h"
#include "node/log.h"
#include "node/troubles.h"
#include "views/description_view.h"

namespace lumd {
namespace {

using lum_linux::node_description;

constexpr std::chrono::seconds patience(5);

bool is_good(const lum_linux::description_result &result) {
  for (const auto &problem : result.problems) lum_linux::say_line(to_string(problem) + "\n");
  return result.node.has_value();
}

// The descriptions of simulated modules belong to the node's.
bool modules_are_good(const node_description &node) {
  bool good = true;
  for (const auto *port : node.ports()) {
    std::error_code error;
    if (port->module.backend != lum_linux::module_backend::simulated ||
        !std::filesystem::exists(port->module.file, error)) {
      continue;
    }
    for (const auto &problem : lum_linux::read_module_image(port->module.file).problems) {
      lum_linux::say_line(to_string(problem) + "\n");
      good = false;
    }
  }
  return good;
}

// The group and the files of TLS that it names.
bool surroundings_are_good(const node_description &node) {
  bool good = true;
  const auto refuse = [&](const std::string &why) {
    if (why.empty()) return;
    lum_linux::say_line(fmt::format("{}: {}\n", node.source.native(), lum_client::printable(why)));
    good = false;
  };
  std::string why;
  group_of(node, why);
  refuse(why);
  tls_of(node, why);
  refuse(why);
  return good;
}

// What is right as a description and yet most likely not what was meant.
void warn(const node_description &node) {
  std::vector<std::string> reasons = never_polled(node);
  for (std::string &risk : risks_of(node)) reasons.push_back(std::move(risk));
  for (const std::string &reason : reasons) {
    lum_linux::say_line(
        fmt::format("{}: warning: {}\n", node.source.native(), lum_client::printable(reason)));
  }
}

// Files that are the ones in force already change nothing.
bool take_over_tls(const node_description &fresh, http_server &server, const std::string &file) {
  std::string why;
  const auto tls = tls_of(fresh, why);
  if (!why.empty()) {
    say("{}: {}: TLS stays as it is", file, lum_client::printable(why));
    return false;
  }
  if (!server.set_tls(tls)) return false;
  if (tls) {
    say("{}: taken over: the files of TLS, whose certificate is good until {}", file,
        tls->last_day());
  }
  return true;
}

void print_line(const node_description &node, const std::string &text) {
  lum_client::print(fmt::format("{}: {}\n", node.source.native(), lum_client::printable(text)));
}

void take_over_interface_manager(driver &node, const lum_linux::im_description &before) {
  const auto &now = node.node().interface_manager;
  using std::chrono::milliseconds;
  if (std::tie(now.delay_min_ms, now.delay_max_ms, now.seed) !=
      std::tie(before.delay_min_ms, before.delay_max_ms, before.seed)) {
    node.platform().im().set_delay(milliseconds(now.delay_min_ms), milliseconds(now.delay_max_ms),
                                   now.seed);
  }
  if (now.out_of_order != before.out_of_order) {
    node.platform().im().set_out_of_order(now.out_of_order);
  }
}

}  // namespace

std::optional<node_description> read_description(const std::string &file) {
  auto result = lum_linux::read_node_description(file);
  if (!is_good(result) || !modules_are_good(*result.node) || !surroundings_are_good(*result.node)) {
    return std::nullopt;
  }
  warn(*result.node);
  return std::move(result.node);
}

void compare_with_running(const node_description &node, const std::string &socket) {
  const std::string asked = socket.empty() ? node.api_socket.native() : socket;
  const auto answer = lumctl::get({asked}, "/v1/description", patience);
  if (answer.what != lumctl::outcome::done) {
    print_line(node, "not compared with a running driver: " + answer.error);
    return;
  }
  try {
    const auto changes = changes_between(facts_in(*answer.body), facts_of(node));
    for (const description_change &one : changes) {
      print_line(
          node,
          (one.live ? "SIGHUP or a restart would change " : "a restart would change ") + one.text);
    }
    if (changes.empty()) print_line(node, "the running driver has the same");
  } catch (const json::exception &) {
    print_line(node, "not compared with a running driver: it is another version");
  }
}

void reload_description(driver &node, http_server &server, const std::string &file) {
  const auto fresh = read_description(file);
  if (!fresh) return say("{}: read again: it is wrong, so nothing is taken over", file);
  const lum_linux::im_description before = node.node().interface_manager;
  const auto changes = node.described().take_over(*fresh);
  const bool has_other_tls = take_over_tls(*fresh, server, file);
  if (changes.empty()) {
    if (!has_other_tls) say("{}: read again: nothing has changed", file);
    return;
  }
  server.set_names(node.node().http_names);
  take_over_interface_manager(node, before);
  for (const description_change &one : changes) {
    say("{}: {}: {}", file, one.live ? "taken over" : "needs a restart",
        lum_client::printable(one.text));
  }
  const auto taken = std::count_if(changes.begin(), changes.end(),
                                   [](const description_change &one) { return one.live; });
  const auto left = static_cast<std::ptrdiff_t>(changes.size()) - taken;
  say("{}: read again: {} taken over, {} {} a restart", file, taken, left,
      left == 1 ? "needs" : "need");
}

}  // namespace lumd
