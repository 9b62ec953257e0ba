// The ports again and again, as polling cycles end.
#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>

#include "api/client.h"
#include "base/output.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "printing/polling_text.h"
#include "printing/ports_table.h"
#include "terminal/printable.h"
#include "terminal/screen.h"

namespace lumctl {
namespace {

using clock = std::chrono::steady_clock;

// How often the driver is asked whether a polling cycle has ended, and how long a picture stays
// when none does: what has gone wrong is then shown.
constexpr std::chrono::milliseconds between_questions(500);
constexpr std::chrono::seconds longest_still(10);

struct watching {
  double interval = 0;  // seconds; 0: as polling cycles end
  unsigned count = 0;   // pictures; 0: until interrupted
  bool all = false;
  bool as_json = false;
};

// What the driver said, or why it did not.
struct view {
  api_result polling;
  api_result ports;
  const api_result &failure() const { return polling.what == outcome::done ? ports : polling; }
  bool good() const { return failure().what == outcome::done; }
};

std::string describe(const view &seen, const style &output) {
  return painted(output, describe_polling(*seen.polling.body), colour::strong) + "\n\n" +
         describe_ports(*seen.ports.body, false, output);
}

// Both answers as one document, under the schema that they have in common.
json joined(const view &seen) {
  json polling = *seen.polling.body;
  json both = {{"schema", polling.at("schema")}};
  polling.erase("schema");
  both["polling"] = std::move(polling);
  both["ports"] = seen.ports.body->at("ports");
  return both;
}

std::uint64_t cycles_of(const api_result &polling) {
  return polling.what == outcome::done ? polling.body->at("cycles").get<std::uint64_t>() : 0;
}

class watcher {
 public:
  watcher(const session &now, const watching &wanted) : now_(now), wanted_(wanted) {
    if (!wanted.as_json && can_draw()) screen_.emplace();
  }

  int run() {
    for (unsigned shown = 0;;) {
      const view seen = look();
      if (!seen.good() && (shown == 0 || !screen_)) return give_up(seen.failure());
      put(seen);
      ++shown;
      if (wanted_.count != 0 && shown >= wanted_.count) return exit_done;
      wait(cycles_of(seen.polling));
    }
  }

 private:
  view look() const {
    view seen;
    seen.polling = get(now_.socket, "/v1/polling", now_.patience);
    if (seen.polling.what == outcome::done) {
      seen.ports =
          get(now_.socket, wanted_.all ? "/v1/ports" : "/v1/ports?existing", now_.patience);
    }
    return seen;
  }

  void put(const view &seen) {
    if (wanted_.as_json) {
      lum_client::print(joined(seen).dump(-1, ' ', false, json::error_handler_t::replace) + "\n");
    } else if (screen_) {
      const style output = style_of_output();
      screen_->draw(seen.good()
                        ? describe(seen, output)
                        : painted(output, printable(seen.failure().error), colour::bad) + "\n");
    } else {
      lum_client::print(describe(seen, now_.output) + "\n");
    }
  }

  void wait(std::uint64_t cycles_shown) {
    const auto begun = clock::now();
    const auto longest = wanted_.interval > 0 ? std::chrono::duration<double>(wanted_.interval)
                                              : std::chrono::duration<double>(longest_still);
    for (;;) {
      const auto left = longest - (clock::now() - begun);
      if (left.count() <= 0 || (screen_ && screen_->resized())) return;
      // Is cut short by a change of the terminal's size.
      const auto pause = std::chrono::duration_cast<std::chrono::nanoseconds>(
          std::min<std::chrono::duration<double>>(left, between_questions));
      const timespec time = {pause.count() / 1'000'000'000, pause.count() % 1'000'000'000};
      ::nanosleep(&time, nullptr);
      if (wanted_.interval > 0) continue;
      const api_result now = get(now_.socket, "/v1/polling", now_.patience);
      if (now.what != outcome::done || cycles_of(now) != cycles_shown) return;
    }
  }

  int give_up(const api_result &failure) {
    screen_.reset();
    return fail(failure.what == outcome::refused ? exit_refused : exit_unreachable, failure.error);
  }

  const session &now_;
  const watching &wanted_;
  std::optional<screen> screen_;
};

int watch(const session &now, const given &words) {
  const watching wanted = {words.real("interval"), words.whole("count"), words.has("all"),
                           wants_json(words)};
  try {
    return watcher(now, wanted).run();
  } catch (const json::exception &) {
    return fail_for_missing_member();
  }
}

}  // namespace

command watch_command() {
  return {.name = "watch",
          .help = "Show every port again as each polling cycle ends",
          .options = {{"interval", "Seconds between two pictures, instead of a polling cycle",
                       value{.kind = value_kind::real, .within = limits{0.1, 86400}}},
                      {"count", "End after so many pictures",
                       value{.kind = value_kind::whole, .within = limits{1, 1'000'000}}},
                      {"all", "Also ports that are described but do not exist"}},
          .action = watch};
}

}  // namespace lumctl
