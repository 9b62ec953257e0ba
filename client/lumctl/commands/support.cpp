// Everything that helps to see what is wrong with a node, in one file.
#include <fmt/format.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "base/output.h"
#include "command_line/status.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "support/bundle.h"
#include "support/collect.h"
#include "terminal/printable.h"
#include "terminal/progress.h"
#include "wording/numbers.h"
#include "words/schema.h"

namespace lumctl {
namespace {

namespace fs = std::filesystem;

// With each answer, unless --timeout says otherwise: a driver that hangs is no news here.
constexpr std::chrono::milliseconds patience(5000);

std::vector<bundle_item> with_manifest(const bundle &collected, const std::string &why_gone) {
  const auto now = std::chrono::system_clock::now();
  const std::string head = fmt::format(
      "Support bundle of {}, made by lumctl {}.\nThe driver: {}\n"
      "When each item was got, its bytes, its name and what is to be said of it:\n\n",
      utc_text(now), LUMCTL_VERSION, why_gone.empty() ? "answers" : why_gone);
  std::vector<bundle_item> items = {{"manifest.txt", collected.manifest(head), true, {}, now}};
  items.insert(items.end(), collected.items().begin(), collected.items().end());
  return items;
}

json document_of(const fs::path &file, const bundle &collected) {
  json items = json::array();
  for (const bundle_item &item : collected.items()) {
    items.push_back({{"name", item.name},
                     {"time", utc_text(item.when)},
                     {"got", item.is_there},
                     {"bytes", item.content.size()},
                     {"note", item.note.empty() ? json() : json(item.note)}});
  }
  return {{"schema", lum_words::api_schema}, {"file", file.string()}, {"items", std::move(items)}};
}

std::string summary(const fs::path &file, const bundle &collected) {
  const std::size_t missing = collected.missing();
  return fmt::format(
      "{}: {}{}\n", printable(file.string()),
      lum_wording::counted(collected.items().size() - missing, "item"),
      missing == 0 ? "" : fmt::format(", {} missing, manifest.txt in it says why", missing));
}

int make_bundle(const session &now, const given &words) {
  const fs::path file = words.text("file");
  std::error_code code;
  const fs::file_status there = fs::symlink_status(file, code);
  if (fs::is_directory(there) || (fs::exists(there) && !words.has("force"))) {
    return fail(exit_refused,
                fmt::format("{} is {}", printable(file.string()),
                            fs::is_directory(there) ? "a folder" : "there; --force replaces it"));
  }
  const support_wish wanted = {now.driver, words.has(timeout_option) ? now.patience : patience,
                               words.text("config")};
  bundle collected;
  std::string why_gone;
  {
    const progress bar("collecting");
    const driver_findings found = collect_from_driver(wanted, collected);
    why_gone = found.why_gone;
    collect_from_node(wanted, found, collected);
  }
  const std::string wrong =
      write_archive(file, words.has("force"), with_manifest(collected, why_gone));
  if (!wrong.empty()) return fail(exit_refused, printable(wrong));
  lum_client::print(
      wants_json(words)
          ? document_of(file, collected).dump(2, ' ', false, json::error_handler_t::replace) + "\n"
          : summary(file, collected));
  return why_gone.empty() ? exit_done
                          : fail(exit_unreachable,
                                 "the bundle has nothing from the driver, or not all: " + why_gone);
}

}  // namespace

command support_command() {
  return {.name = "support",
          .help = "Write what helps to see what is wrong with a node into one archive",
          .arguments = {{"file", "The archive, FILE.tar.gz", value{}}},
          .options = {{"force", "Replace a file that is there"},
                      {"config", "The node's description, instead of the driver's", value{}}},
          .action = make_bundle,
          .on_node = true};
}

}  // namespace lumctl
