// The ports again and again, as polling cycles end.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "base/output.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "commands/watch_screen.h"
#include "printing/line.h"
#include "printing/polling_text.h"
#include "terminal/printable.h"
#include "terminal/progress.h"
#include "terminal/screen.h"

namespace lumctl {
namespace {

// Both answers as one document, under the schema that they have in common.
json joined(const port_news &news, const port_selection &wanted) {
  json ports = *news.ports.body;
  select_ports(ports, wanted);
  json polling = *news.polling.body;
  json both = {{"schema", polling.at("schema")}};
  polling.erase("schema");
  both["polling"] = std::move(polling);
  both["ports"] = ports.at("ports");
  return both;
}

// One picture below the other.
class printed_pictures {
 public:
  printed_pictures(const session &now, const watching &wanted) : now_(now), wanted_(wanted) {}

  void put(const port_news &news) {
    json ports = *news.ports.body;
    const std::size_t of = select_ports(ports, wanted_.ports);
    // Marks are for people: whoever reads a pipe gets the values as they are.
    const json *const before = now_.output.columns > 0 && before_ ? before_.get() : nullptr;
    const ports_picture picture = picture_of_ports(ports, before, wanted_.wish, now_.output);
    lum_client::print(
        painted(now_.output,
                wrapped(describe_polling(*news.polling.body), now_.output.columns, hang_of_notes),
                colour::strong) +
        "\n\n" + render(picture.shown, now_.output) + picture.notes +
        describe_selection(ports, wanted_.ports, of) + "\n");
    before_ = news.ports.body;
  }

 private:
  const session &now_;
  const watching &wanted_;
  std::shared_ptr<const json> before_;
};

void put(printed_pictures &pictures, const port_news &news, const watching &wanted, bool as_json) {
  if (!as_json) return pictures.put(news);
  const json both = joined(news, wanted.ports);
  lum_client::print(both.dump(-1, ' ', false, json::error_handler_t::replace) + "\n");
}

std::string describe_absence(const api_result &failure, const style &output) {
  return folded_notes(fmt::format("no driver since {:%H:%M:%S}, trying again: {}\n",
                                  fmt::localtime(std::time(nullptr)), printable(failure.error)),
                      output);
}

int give_up(const api_result &failure) {
  return fail(failure.what == outcome::refused ? exit_refused : exit_unreachable, failure.error);
}

// One picture below the other. On a terminal that is no reason to end when the driver goes: who
// looks on is told, and the pictures go on with it.
int watch_in_print(const session &now, const watching &wanted, bool as_json, port_news news) {
  printed_pictures pictures(now, wanted);
  bool gone = false;
  for (unsigned shown = 0;; news = ask_for_news(now, wanted.ports)) {
    if (!news.good() && (as_json || !is_output_seen())) return give_up(news.failure());
    if (!news.good()) {
      if (!gone) lum_client::print(describe_absence(news.failure(), now.output));
    } else {
      put(pictures, news, wanted, as_json);
      if (++shown == wanted.count) return exit_done;
    }
    gone = !news.good();
    wait_for_next(now, news, wanted.interval, [](std::chrono::milliseconds pause) {
      std::this_thread::sleep_for(pause);
      return false;
    });
  }
}

int watch(const session &now, const given &words) {
  if (const std::string twice = form_given_twice(words); !twice.empty()) {
    return fail(exit_usage, "watch: " + twice);
  }
  const watching wanted = {selection_of(words), wish_of(words), words.real("interval"),
                           words.whole("count")};
  try {
    const port_news first = [&] {
      const progress bar("waiting for the driver");
      return ask_for_news(now, wanted.ports);
    }();
    if (!first.good()) return give_up(first.failure());
    if (wants_json(words) || !can_draw()) {
      return watch_in_print(now, wanted, wants_json(words), first);
    }
    return watch_on_screen(now, wanted, first);
  } catch (const json::exception &) {
    return fail_for_missing_member();
  }
}

}  // namespace

command watch_command() {
  std::vector<option> options = {
      {"interval", "Seconds between two pictures, instead of a polling cycle",
       value{.kind = value_kind::real, .within = limits{0.1, 86400}}},
      {"count", "End after so many pictures",
       value{.kind = value_kind::whole, .within = limits{1, 1'000'000}}}};
  for (option &one : form_options()) options.push_back(std::move(one));
  for (option &one : selection_options()) options.push_back(std::move(one));
  return {.name = "watch",
          .help = "Show the ports again as each polling cycle ends",
          .arguments = {selected_names()},
          .options = options,
          .action = watch};
}

}  // namespace lumctl
