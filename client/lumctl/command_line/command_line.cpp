#include "command_line/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "base/output.h"
#include "command_line/complaint.h"
#include "command_line/position.h"
#include "command_line/status.h"
#include "wording/nearest.h"

namespace lumctl {
namespace {

constexpr const char *footer =
    "Exit status: 0 done, 1 refused or not found, 2 wrong usage, 3 driver not reachable.";
constexpr const char *general_options = "Options of every command";

// A command as it is being read.
struct reading {
  const command &lumctl;
  const command *chosen = nullptr;
  std::string path = {};  // the words that lead to the chosen one
  given words = {};
};

// Where a wrong number is the only thing that no range keeps out.
CLI::Validator range_check(const limits &range) {
  return {[range](std::string &text) -> std::string {
            double number = 0;
            const bool is_number = CLI::detail::lexical_cast(text, number);
            if (is_number && number >= range.lowest && number <= range.highest) return {};
            return fmt::format("\"{}\" is no number from {} to {}", text, range.lowest,
                               range.highest);
          },
          fmt::format("{} to {}", range.lowest, range.highest)};
}

CLI::Validator word_check(const std::vector<std::string> &words) {
  return {[words](std::string &text) -> std::string {
            if (std::find(words.begin(), words.end(), text) != words.end()) return {};
            return fmt::format("\"{}\" is none of {}{}", text, fmt::join(words, ", "),
                               lum_wording::did_you_mean(text, words));
          },
          fmt::format("{{{}}}", fmt::join(words, ","))};
}

// Each part of a list is a word.
CLI::Validator list_check(const std::vector<std::string> &words) {
  return {[words](std::string &text) -> std::string {
            const CLI::Validator one = word_check(words);
            for (std::string part : parts_of(text)) {
              if (std::string wrong = one(part); !wrong.empty()) return wrong;
            }
            return {};
          },
          fmt::format("{{{}}},...", fmt::join(words, ","))};
}

void limit(CLI::Option &added, const value &takes) {
  if (takes.within) added.check(range_check(*takes.within));
  if (takes.only_words) added.check(takes.list ? list_check(takes.words) : word_check(takes.words));
  if (takes.wrong) added.check(takes.wrong);
}

// `shown` is `name` as the library of the command line wants it.
CLI::Option &add_value(CLI::App &app, const std::string &shown, const std::string &name,
                       const std::string &help, const value &takes, given &words) {
  CLI::Option *added = nullptr;
  switch (takes.kind) {
    case value_kind::text:
      added = app.add_option_function<std::string>(
          shown, [&words, name](const std::string &text) { words.put_texts(name, {text}); }, help);
      break;
    case value_kind::whole:
      added = app.add_option_function<std::uint32_t>(
          shown, [&words, name](std::uint32_t number) { words.put_whole(name, number); }, help);
      break;
    case value_kind::real:
      added = app.add_option_function<double>(
          shown, [&words, name](double number) { words.put_real(name, number); }, help);
      break;
  }
  limit(*added, takes);
  return *added;
}

void add_argument(CLI::App &app, const argument &wanted, given &words) {
  if (!wanted.repeated) {
    add_value(app, wanted.name, wanted.name, wanted.help, wanted.takes, words)
        .required(wanted.required);
    return;
  }
  CLI::Option &added = *app.add_option_function<std::vector<std::string>>(
      wanted.name,
      [&words, name = wanted.name](const std::vector<std::string> &texts) {
        words.put_texts(name, texts);
      },
      wanted.help);
  limit(added, wanted.takes);
  added.required(wanted.required);
}

CLI::Option &add_option(CLI::App &app, const option &wanted, given &words) {
  const std::string letter = wanted.letter == 0 ? "" : std::string("-") + wanted.letter + ",";
  const std::string shown = letter + "--" + wanted.name;
  if (!wanted.takes) {
    return *app.add_flag_callback(
        shown, [&words, name = wanted.name] { words.put_flag(name); }, wanted.help);
  }
  CLI::Option &added = add_value(app, shown, wanted.name, wanted.help, *wanted.takes, words);
  if (!wanted.excludes.empty()) added.excludes(app.get_option(wanted.excludes));
  return added;
}

// What is typed goes into `now`.
void add_words(CLI::App &app, const command &described, reading &now) {
  for (const argument &wanted : described.arguments) add_argument(app, wanted, now.words);
  for (const option &wanted : described.options) add_option(app, wanted, now.words);
  if (&described == &now.lumctl || !described.asks) return;
  for (const option &wanted : now.lumctl.options) {
    add_option(app, wanted, now.words).group(general_options);
  }
}

void add_commands(CLI::App &app, const command &described, const std::string &path, reading &now) {
  if (!described.commands.empty()) app.require_subcommand(0, 1);
  for (const command &below : described.commands) {
    const std::string longer = path.empty() ? below.name : path + " " + below.name;
    CLI::App *added = app.add_subcommand(below.name, below.help);
    if (below.hidden) added->group("");
    if (below.action) {
      added->callback([&below, &now, longer] {
        now.chosen = &below;
        now.path = longer;
      });
    }
    add_words(*added, below, now);
    add_commands(*added, below, longer, now);
  }
}

int fail_for_usage(const std::string &why) { return fail(exit_usage, why + "; try --help"); }

bool has_option(const command &described, std::string_view name) {
  return std::any_of(described.options.begin(), described.options.end(),
                     [name](const option &one) { return one.name == name; });
}

// What a command that asks no driver was told about asking it; empty when nothing was.
std::string useless_option(const reading &typed) {
  if (typed.chosen->asks) return {};
  for (const option &one : typed.lumctl.options) {
    if (!typed.words.has(one.name) || has_option(*typed.chosen, one.name)) continue;
    return fmt::format("\"{}\" asks no driver, --{} has no meaning there", typed.path, one.name);
  }
  return {};
}

// Returns what is wrong with what was typed of where the driver is, or nothing.
std::string take_destination(const reading &typed, destination &driver) {
  for (const char *name : {socket_option, url_option, ca_option, cert_option, key_option}) {
    if (!typed.words.has(name)) continue;
    const std::string text = typed.words.text(name);
    if (text.empty() && name != std::string_view(socket_option)) {
      return fmt::format("--{} is empty", name);
    }
    put_destination(driver, name, text);
  }
  if (typed.words.has(url_option) && typed.words.has(socket_option)) {
    return "--socket and --url are two ways to a driver, give one of them";
  }
  if (!driver.url.empty() && typed.chosen->on_node) {
    return fmt::format("\"{}\" looks at the node's own files: use it on the node", typed.path);
  }
  return complaint_of(driver);
}

int act(const reading &typed, session now) {
  if (const std::string useless = useless_option(typed); !useless.empty()) {
    return fail_for_usage(useless);
  }
  if (const std::string wrong = take_destination(typed, now.driver); !wrong.empty()) {
    return fail_for_usage(wrong);
  }
  if (typed.words.has(timeout_option)) {
    now.patience = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::duration<double>(typed.words.real(timeout_option)));
  }
  return typed.chosen->action(now, typed.words);
}

int read_and_act(const command &lumctl, const session &now, int argc, const char *const *argv) {
  CLI::App app(lumctl.help, lumctl.name);
  reading typed = {lumctl};
  add_words(app, lumctl, typed);
  app.set_version_flag(std::string("--") + version_option, lumctl.name + " " LUMCTL_VERSION);
  app.footer(footer);
  add_commands(app, lumctl, {}, typed);
  const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  std::ostringstream asked_for;
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success &asked) {
    app.exit(asked, asked_for, asked_for);
  } catch (const CLI::ParseError &wrong) {
    const std::string complaint = complaint_of_words(lumctl, words);
    return fail_for_usage(complaint.empty() ? wrong.what() : complaint);
  }
  if (!asked_for.str().empty()) {
    lum_client::print(asked_for.str());
    return exit_done;
  }
  if (const std::string &twice = typed.words.given_twice(); !twice.empty()) {
    return fail_for_usage("--" + twice + " is given twice");
  }
  if (typed.chosen == nullptr) return fail_for_usage(complaint_of_missing(lumctl, words));
  return act(typed, now);
}

}  // namespace

int run_command_line(const command &lumctl, const session &now, int argc, const char *const *argv) {
  try {
    return read_and_act(lumctl, now, argc, argv);
  } catch (const std::exception &error) {
    return fail(exit_refused, error.what());
  }
}

}  // namespace lumctl
