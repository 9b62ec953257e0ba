#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "api/client.h"
#include "json/read.h"
#include "support/collect.h"

namespace lumctl {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

struct view {
  const char *name;
  const char *target;
};

constexpr const char *node_target = "/v1/node";
constexpr const char *ports_target = "/v1/ports";
constexpr auto views = std::to_array<view>({{"views/node.json", node_target},
                                            {"views/health.json", "/v1/health"},
                                            {"views/liveness.json", "/healthz"},
                                            {"views/readiness.json", "/readyz"},
                                            {"views/polling.json", "/v1/polling"},
                                            {"views/ports.json", ports_target},
                                            {"views/controllers.json", "/v1/controllers"},
                                            {"views/im.json", "/v1/im"},
                                            {"views/alarms.json", "/v1/alarms?all=true"},
                                            {"views/pm.json", "/v1/pm"},
                                            {"views/pm-15min.json", "/v1/pm?bins=15min"},
                                            {"views/pm-24h.json", "/v1/pm?bins=24h"},
                                            {"views/events.json", "/v1/events"},
                                            {"views/settings.json", "/v1/settings"},
                                            {"views/description.json", "/v1/description"},
                                            {"metrics.txt", "/metrics"}});

// The pages that the library reads or writes; the lower page comes with each.
constexpr unsigned pages = 4;

// A shelf of modules that hang would take minutes.
constexpr std::chrono::seconds longest_with_pages(60);

class collector {
 public:
  collector(const support_wish &wanted, bundle &into) : wanted_(wanted), into_(into) {}

  driver_findings collect() {
    for (const view &one : views) {
      const raw_answer answer = ask(one.target);
      if (answer.what != outcome::done) {
        into_.miss(one.name, answer.error);
        continue;
      }
      // Liveness and readiness are told with another status when they are not given.
      if (answer.status / 100 == 2 || answer.status == 503) {
        into_.add(one.name, answer.body);
      } else {
        into_.miss(one.name, why_refused(answer));
      }
      if (one.target == node_target) learn(answer.body);
      if (one.target == ports_target) ports_ = parsed(answer.body);
    }
    collect_modules();
    found_.why_gone = gone_;
    return found_;
  }

 private:
  raw_answer ask(const std::string &target) {
    if (!gone_.empty()) return {outcome::unreachable, 0, {}, "not asked for: " + gone_};
    raw_answer answer = get_as_it_is(wanted_.driver, target, wanted_.patience);
    if (answer.what != outcome::done) gone_ = answer.error;
    return answer;
  }

  static json parsed(const std::string &body) {
    std::string why;
    json document = lum_json::read(body, why);
    return why.empty() ? document : json();
  }

  static std::string why_refused(const raw_answer &answer) {
    const auto reason = reason_in(parsed(answer.body));
    return fmt::format("the driver refused ({}){}", answer.status, reason ? ": " + *reason : "");
  }

  static fs::path folder_of(const json &file) {
    return file.is_string() ? fs::path(file.get<std::string>()).parent_path() : fs::path();
  }

  void learn(const std::string &body) {
    const json node = parsed(body);
    if (!node.is_object()) return;
    try {
      found_.version = node.at("version").get<std::string>();
      found_.description = node.at("description").get<std::string>();
      found_.state_folder = folder_of(node.at("checkpoints").at("file"));
      for (const json &channel : node.at("traces"))
        found_.trace_folder = folder_of(channel.at("file"));
    } catch (const json::exception &) {  // another version; what was found is kept
    }
  }

  void collect_modules() {
    if (!ports_.is_object() || !ports_.contains("ports") || !ports_.at("ports").is_array()) {
      into_.miss("modules", gone_.empty() ? "the ports are not known" : "not asked for: " + gone_);
      return;
    }
    for (const json &port : ports_.at("ports")) {
      try {
        collect_module(port);
        collect_history(port);
      } catch (const json::exception &) {
        into_.miss("modules", "a port has no name or position");
      }
    }
  }

  static std::string name_in(const char *folder, const json &port) {
    return fmt::format("{}/{}-{}-{}-{}.json", folder, port.at("rack").get<unsigned>(),
                       port.at("slot").get<unsigned>(), port.at("instance").get<unsigned>(),
                       port.at("port").get<unsigned>());
  }

  void collect_history(const json &port) {
    const std::string name = name_in("history", port);
    const raw_answer answer = ask(
        fmt::format("{}/{}/history", ports_target, encoded(port.at("name").get<std::string>())));
    if (answer.what == outcome::done && answer.status == 200) {
      into_.add(name, answer.body);
    } else {
      into_.miss(name, answer.what == outcome::done ? why_refused(answer) : answer.error);
    }
  }

  // One document with every page that could be had, which `lumctl decode` reads too. The first page
  // that cannot be read is the last that is asked for.
  void collect_module(const json &port) {
    const std::string name = name_in("modules", port);
    const std::string target = "/v1/modules/" + encoded(port.at("name").get<std::string>());
    json all = json::array();
    std::string why;
    for (unsigned page = 0; page < pages && why.empty(); ++page) {
      if (steady_clock::now() - begun_ > longest_with_pages) {
        why = "other modules took too long";
        break;
      }
      const raw_answer answer = ask(fmt::format("{}?page={}", target, page));
      const json shown = answer.what == outcome::done ? parsed(answer.body) : json();
      if (answer.what != outcome::done) {
        why = answer.error;
      } else if (answer.status != 200 || !shown.is_object() || !shown.contains("page")) {
        why = why_refused(answer);
      } else {
        all.push_back(shown.at("page"));
      }
    }
    add_module(name, target, std::move(all), why);
  }

  void add_module(const std::string &name, const std::string &target, json all,
                  const std::string &why) {
    const raw_answer answer = ask(target);
    json shown = answer.what == outcome::done ? parsed(answer.body) : json();
    if (!shown.is_object()) shown = json::object();
    const std::string note =
        why.empty() ? "" : fmt::format("without the pages from {} on: {}", all.size(), why);
    shown["pages"] = std::move(all);
    if (answer.what != outcome::done || answer.status != 200) {
      const std::string cause = answer.what == outcome::done ? why_refused(answer) : answer.error;
      into_.miss(name, cause);
      return;
    }
    into_.add(name, shown.dump(1, ' ', false, json::error_handler_t::replace) + "\n", note);
  }

  const support_wish &wanted_;
  bundle &into_;
  const steady_clock::time_point begun_ = steady_clock::now();
  std::string gone_;  // why the driver is asked nothing more
  json ports_;
  driver_findings found_;
};

}  // namespace

driver_findings collect_from_driver(const support_wish &wanted, bundle &into) {
  return collector(wanted, into).collect();
}

}  // namespace lumctl
