#include "command_line/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "command_line/status.h"

namespace lumctl {
namespace {

constexpr const char *footer =
    "Exit status: 0 done, 1 refused or not found, 2 wrong usage, 3 driver not reachable.";

// A command as it is being read.
struct reading {
  const command *chosen = nullptr;
  given words;
};

void limit(CLI::Option &added, const value &takes) {
  if (takes.within && takes.kind == value_kind::real) {
    added.check(CLI::Range(takes.within->lowest, takes.within->highest));
  } else if (takes.within) {
    added.check(CLI::Range(static_cast<int>(takes.within->lowest),
                           static_cast<int>(takes.within->highest)));
  }
  if (takes.only_words) added.check(CLI::IsMember(takes.words));
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

CLI::Option &add_argument(CLI::App &app, const argument &wanted, given &words) {
  if (!wanted.repeated) {
    CLI::Option &added = add_value(app, wanted.name, wanted.name, wanted.help, wanted.takes, words);
    added.required(wanted.required);
    return added;
  }
  CLI::Option &added = *app.add_option_function<std::vector<std::string>>(
      wanted.name,
      [&words, name = wanted.name](const std::vector<std::string> &texts) {
        words.put_texts(name, texts);
      },
      wanted.help);
  limit(added, wanted.takes);
  added.required(wanted.required);
  return added;
}

void add_option(CLI::App &app, const option &wanted, given &words) {
  const std::string shown = "--" + wanted.name;
  if (!wanted.takes) {
    app.add_flag_callback(
        shown, [&words, name = wanted.name] { words.put_flag(name); }, wanted.help);
    return;
  }
  CLI::Option &added = add_value(app, shown, wanted.name, wanted.help, *wanted.takes, words);
  if (!wanted.excludes.empty()) added.excludes(app.get_option(wanted.excludes));
}

// What is typed goes into `now`.
void add_words(CLI::App &app, const command &described, reading &now) {
  for (const argument &wanted : described.arguments) add_argument(app, wanted, now.words);
  for (const option &wanted : described.options) add_option(app, wanted, now.words);
}

void add_commands(CLI::App &app, const command &described, reading &now) {
  if (!described.commands.empty()) app.require_subcommand(0, 1);
  for (const command &below : described.commands) {
    CLI::App *added = app.add_subcommand(below.name, below.help);
    if (below.hidden) added->group("");
    if (below.action) added->callback([&below, &now] { now.chosen = &below; });
    add_words(*added, below, now);
    add_commands(*added, below, now);
  }
}

}  // namespace

int run_command_line(const command &lumctl, session now, int argc, const char *const *argv) {
  CLI::App app(lumctl.help, lumctl.name);
  reading typed;
  add_words(app, lumctl, typed);
  app.set_version_flag(std::string("--") + version_option, lumctl.name + " " LUMCTL_VERSION);
  app.footer(footer);
  add_commands(app, lumctl, typed);
  try {
    app.parse(argc, argv);
    if (typed.chosen == nullptr) return fail(exit_usage, "a command is missing; try --help");
    now.socket = typed.words.text(socket_option, now.socket);
    return typed.chosen->action(now, typed.words);
  } catch (const CLI::Success &asked) {
    return app.exit(asked);
  } catch (const CLI::ParseError &wrong) {
    return fail(exit_usage, fmt::format("{}; try --help", wrong.what()));
  } catch (const std::exception &error) {
    return fail(exit_refused, error.what());
  }
}

}  // namespace lumctl
