#include "views/polling_view.h"

#include <nlohmann/json.hpp>

#include "json/object.h"
#include "node/driver.h"
#include "node/polling_halt.h"
#include "views/times.h"

namespace lumd {
namespace {

using lum_client::object;

constexpr int polling_period_s = 5;

json show_cycle(const polling_cycle &cycle) {
  json shown =
      object({{"duration_s", seconds_of(cycle.ended - cycle.started)}, {"ports", cycle.ports}});
  if (cycle.lateness) shown["lateness_s"] = seconds_of(*cycle.lateness);
  return shown;
}

}  // namespace

json show_polling(driver &node) {
  const polling_report report = node.polling().report();
  json shown = object({{"cycles", report.cycles},
                       {"running", report.running},
                       {"paused", report.paused},
                       {"period_s", polling_period_s},
                       {"last", nullptr}});
  shown["halt"] = show_halt(node);
  if (report.last) {
    shown["last"] = show_cycle(*report.last);
    shown["last"]["age_s"] = seconds_of(std::chrono::steady_clock::now() - report.last->ended);
  }
  return shown;
}

json show_halt(driver &node) {
  const auto halt = halt_of(node);
  if (!halt) return nullptr;
  return object({{"reason", halt->reason}, {"for_s", seconds_of(halt->lasting)}});
}

}  // namespace lumd
