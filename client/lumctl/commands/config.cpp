// A node's settings moved as a whole.
#include <fmt/format.h>

#include <map>
#include <nlohmann/json.hpp>

#include "api/client.h"
#include "base/output.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "commands/settings_file.h"
#include "printing/port_cells.h"
#include "printing/settings_text.h"
#include "terminal/progress.h"
#include "wording/numbers.h"
#include "words/schema.h"

namespace lumctl {
namespace {

// What an exported file lacks is told, and is a failure; what is saved otherwise is only told.
int export_config(const session &now, const given &words) {
  const api_result result = get(now.driver, "/v1/settings", now.patience);
  if (result.what != outcome::done) return fail_for(result);
  try {
    const exported_settings exported = export_settings(*result.body);
    if (wants_json(words)) {
      print_as_json(*result.body);
    } else {
      lum_client::print(exported.text);
    }
    for (const std::string &remark : exported.remarks) fail(exit_done, remark);
    for (const std::string &lack : exported.missing) fail(exit_refused, lack);
    return exported.missing.empty() ? exit_done : exit_refused;
  } catch (const json::exception &) {
    return fail_for_missing_member();
  }
}

api_result send(const session &now, const listed_settings &one, bool is_rehearsal) {
  json body = one.settings;
  if (one.sub_port) body["sub_port"] = *one.sub_port;
  if (is_rehearsal) body["dry_run"] = true;
  return post(now.driver, settings_path(one.port), body, now.patience);
}

std::string place_of(const json &reply) {
  return fmt::format("{}:{}", text_or_dash(reply.at("name")), reply.at("sub_port").get<unsigned>());
}

// One import, from its check to its end.
class settings_import {
 public:
  settings_import(const session &now, std::string file) : now_(now), file_(std::move(file)) {}

  // Has the driver judge everything, and changes nothing. Returns the exit status.
  int check(const std::vector<listed_settings> &listed) {
    std::map<std::string, unsigned> lines;
    int status = exit_done;
    for (const listed_settings &one : listed) {
      const api_result result = send(now_, one, true);
      if (result.what == outcome::unreachable) return fail_for(result);
      std::string wrong = result.error;
      if (result.what == outcome::done) {
        const auto [first, is_new] = lines.emplace(place_of(*result.body), one.line);
        if (!is_new) {
          wrong = fmt::format("{} stands twice, first in line {}", first->first, first->second);
        }
        replies_.push_back(*result.body);
      }
      if (!wrong.empty()) {
        status = fail(exit_refused, fmt::format("{}:{}: {}", file_, one.line, wrong));
      }
    }
    if (status != exit_done) fail(status, "nothing has been changed");
    return status;
  }

  // Applies one after the other, and goes on after one that did not come about; what did not is
  // told at the end.
  int apply(const std::vector<listed_settings> &listed) {
    std::vector<std::string> wrong;
    const int status = apply(listed, wrong);
    for (const std::string &one : wrong) fail(status, one);
    return status;
  }

  json as_json(bool is_complete) const {
    return {{"schema", lum_words::api_schema}, {"complete", is_complete}, {"settings", replies_}};
  }

  std::string as_text() const {
    std::string text;
    for (const json &reply : replies_) {
      if (reply.at("result").is_object()) text += describe_change(reply);
    }
    return text.empty() ? "no settings\n" : text;
  }

 private:
  int apply(const std::vector<listed_settings> &listed, std::vector<std::string> &wrong) {
    const progress bar("waiting for the driver");
    replies_.clear();
    for (const listed_settings &one : listed) {
      const api_result result = send(now_, one, false);
      if (result.what == outcome::unreachable) {
        wrong.push_back(fmt::format("{} of {} settled, then: {}", replies_.size(),
                                    lum_wording::counted(listed.size(), "sub-port"), result.error));
        return exit_unreachable;
      }
      std::string reason = result.error;
      if (result.what == outcome::done) {
        replies_.push_back(*result.body);
        if (!result.body->at("complete").get<bool>()) {
          reason = result.body->at("reason").get<std::string>();
        }
      }
      if (reason.empty()) continue;
      wrong.push_back(fmt::format("{}:{}: port {}: {}", file_, one.line, one.port, reason));
    }
    return wrong.empty() ? exit_done : exit_refused;
  }

  const session &now_;
  std::string file_;
  json replies_ = json::array();
};

int import_config(const session &now, const given &words) {
  const std::string file = words.text("file");
  const settings_file read = read_settings_file(file);
  for (const std::string &problem : read.problems) fail(exit_usage, problem);
  if (!read.problems.empty()) return exit_usage;
  try {
    settings_import all(now, file);
    int status = all.check(read.listed);
    if (status != exit_done) return status;
    if (!words.has("dry-run")) status = all.apply(read.listed);
    if (wants_json(words)) {
      print_as_json(all.as_json(status == exit_done));
    } else {
      lum_client::print(all.as_text());
    }
    return status;
  } catch (const json::exception &) {
    return fail_for_missing_member();
  }
}

}  // namespace

command config_commands() {
  const command save = {.name = "export",
                        .help = "Print the settings of every port, as TOML",
                        .action = export_config};
  const command load = {
      .name = "import",
      .help = "Change settings to those of a file; all are checked before the first is changed",
      .arguments = {{"file", "What config export has printed", value{}}},
      .options = {{"dry-run", "Only check, and say what would change"}},
      .action = import_config};
  return {.name = "config", .help = "Move the settings of a node", .commands = {save, load}};
}

}  // namespace lumctl
