#include "node/event_watch.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/printable.h"
#include "lum_linux/alarms.h"
#include "lum_linux/leds.h"
#include "node/alarms.h"
#include "node/driver.h"
#include "wording/numbers.h"
#include "words/events.h"

namespace lumd {
namespace {

using lum_linux::port_description;
using lum_words::event_id;
using clock = std::chrono::steady_clock;

// A batch of the interface manager that is not answered for so long.
constexpr std::chrono::seconds answer_limit(10);
// A cycle that begins so much later than it should.
constexpr std::chrono::seconds late_limit(2);
// Ports that have not come up by then are told as what they are.
constexpr std::chrono::seconds settling_limit(30);
constexpr std::chrono::seconds comparing_period(5);
constexpr std::chrono::seconds long_comparing_period(60);
// Polling that is quiet for longer stands still.
constexpr std::chrono::seconds standing_limit(8);
constexpr uint64_t lively_cycles = 3;
// As many events of a kind may be told in one look, each on a line of its own.
constexpr std::size_t most_lines = 10;
constexpr std::size_t most_names = 20;

event make_event(std::string_view kind, severity how_bad, const std::string &text) {
  event made;
  made.kind = kind;
  made.how_bad = how_bad;
  made.text = lum_client::printable(text);
  return made;
}

event make_event(event_id kind, severity how_bad, const std::string &text) {
  return make_event(name_of(lum_words::events, kind), how_bad, text);
}

std::string identity_of(const port_snapshot &at) {
  if (!at.is_filled) return {};
  const lum_vendor_info &vendor = at.copy->data.vendor;
  std::string text;
  for (const std::string &part : {text_of(vendor.vendor_name), text_of(vendor.vendor_part_number),
                                  text_of(vendor.vendor_serial_number)}) {
    const std::size_t length = part.find_last_not_of(' ') + 1;
    if (length != 0) text += (text.empty() ? "" : " ") + part.substr(0, length);
  }
  return text;
}

bool is_passing(port_state state) {
  return state == port_state::coming_up || state == port_state::going;
}

severity severity_of(port_state state) {
  switch (state) {
    case port_state::failing:
      return severity::critical;
    case port_state::stale:
      return severity::warning;
    default:
      return severity::ok;
  }
}

// Told as states of ports, with the place that cannot be reached, and as alarms of theirs.
bool is_told_otherwise(const finding &one) {
  return one.kind == name_of(lum_words::findings, lum_words::finding_id::alarm_raised) ||
         one.kind == name_of(lum_words::findings, lum_words::finding_id::place_missing) ||
         one.kind == name_of(lum_words::port_states, port_state::failing) ||
         one.kind == name_of(lum_words::port_states, port_state::stale);
}

std::string place_of(const event &one) {
  if (one.port.empty()) return {};
  return fmt::format("port {}{}: ", one.port,
                     one.sub_port ? fmt::format(" sub-port {}", *one.sub_port) : "");
}

}  // namespace

event_watch::event_watch(driver &node, event_log &events)
    : node_(node), events_(events), outlets_(node.node()) {}

bool event_watch::look(const std::vector<port_words> &words) {
  gather(words, now_);
  const bool has_changed = now_ != outline_;
  std::swap(outline_, now_);
  const uint64_t cycles = node_.polling().standing().cycles;
  if (has_changed) changed_in_ = cycles;
  const bool under_way = is_under_way(outline_);
  if (has_changed || under_way || is_to_be_compared()) {
    compared_at_ = clock::now();
    compared_in_ = cycles;
    handed_on_ = node_.feed().handed_on();
    compare_ports();
  }
  see_findings(findings_beside_ports(node_), others_);
  see_interface_manager();
  see_polling();
  events_.sum_up();
  tell();
  return has_changed || under_way || events_.holds_back();
}

void event_watch::gather(const std::vector<port_words> &words, outline &now) const {
  now.ports.clear();
  now.alarms.clear();
  for (const port_words &port : words) {
    now.ports.push_back(port.facts);
    for (const auto &one : port.controllers) {
      now.alarms.push_back(lum_linux::ptah_bitmap(one.ifhandle));
    }
  }
  now.modules.clear();
  now.upgrades.clear();
  for (const port_description *port : node_.node().ports()) {
    now.modules.push_back(node_.platform().modules().glimpse(port->rsip));
    now.upgrades.push_back(node_.platform().fw_upgrade(port->rsip));
  }
  now.manager = node_.platform().im().statistics();
  now.halted = node_.count().halts_polling();
  now.paused = node_.polling().report().paused;
  now.led_trouble = node_.platform().leds().in_trouble();
}

bool event_watch::is_under_way(const outline &now) const {
  const auto passes = [](const port_facts &port) { return !port.created || port.going; };
  return !settled_ || now.manager.pending != 0 ||
         std::any_of(now.ports.begin(), now.ports.end(), passes) ||
         std::any_of(now.modules.begin(), now.modules.end(),
                     [](const auto &module) { return module.busy || !module.known; });
}

// A port that has come needs a few cycles until all is known of it; what then changes with time
// alone is polling that stands, which is told at once, and ports that it passes by.
bool event_watch::is_to_be_compared() {
  const auto since = compared_at_ ? clock::now() - *compared_at_ : clock::duration::max();
  if (since >= long_comparing_period) return true;
  const auto polling = node_.polling().report();
  if (polling.quiet_for > standing_limit || outline_.led_trouble) {
    return since >= comparing_period;
  }
  if (polling.cycles > changed_in_ + lively_cycles) return false;
  return polling.cycles != compared_in_ || node_.feed().handed_on() != handed_on_ ||
         since >= comparing_period;
}

void event_watch::compare_ports() {
  const auto snapshots = look_at_ports(node_);
  for (const port_description *port : node_.node().ports()) {
    const port_snapshot &at = snapshots.at(port->rsip);
    known_port &known = ports_[port->rsip];
    see_module(*port, at, known);
    see_state(*port, at, known);
    see_alarms(*port, at, known);
  }
  see_settled(snapshots);
  see_findings(findings_of_ports(node_, snapshots), findings_);
}

void event_watch::tell_the_rest() {
  events_.sum_up_all();
  tell();
}

void event_watch::see_module(const port_description &port, const port_snapshot &at,
                             known_port &known) {
  if (!at.module.is_known() || at.module.place_code != 0) return;
  const bool filled = at.module.present;
  const bool is_another = filled && at.module.insertion != known.insertion;
  const auto add = [&](event_id kind, const std::string &text) {
    event one = make_event(kind, severity::ok, text);
    one.port = port.name;
    events_.add(std::move(one), "module " + port.name);
  };
  const std::string was = known.module.empty() ? "" : ": " + known.module;
  if (known.filled == true && !filled) {
    add(event_id::module_out, "the module has gone" + was);
  } else if (known.filled == false && filled) {
    add(event_id::module_in, "a module has come");
  } else if (known.filled == true && is_another) {
    add(event_id::module_swapped, "the module was taken out, and it or another is in" +
                                      (was.empty() ? "" : "; it was" + was.substr(1)));
  }
  if (known.filled != filled || is_another) known.module.clear();
  known.filled = filled;
  known.insertion = at.module.insertion;
  if (auto identity = identity_of(at); !identity.empty()) known.module = std::move(identity);
}

void event_watch::see_state(const port_description &port, const port_snapshot &at,
                            known_port &known) {
  if (is_passing(at.state) || known.state == at.state) return;
  auto before = known.state;
  known.state = at.state;
  // What a node starts with is told together, but for what is wrong with it.
  const bool is_first = !before || (*before == port_state::absent && !settled_);
  if (is_first && severity_of(at.state) == severity::ok) return;
  if (is_first) before.reset();
  const auto name = name_of(lum_words::port_states, at.state);
  std::string text(name);
  if (before) text += fmt::format(", was {}", name_of(lum_words::port_states, *before));
  if (!at.reason.empty()) text += ": " + at.reason;
  event one = make_event(event_id::port_state, severity_of(at.state), text);
  one.port = port.name;
  one.details = {{"state", std::string(name)}};
  if (before)
    one.details.emplace_back("was", std::string(name_of(lum_words::port_states, *before)));
  events_.add(std::move(one), "state " + port.name);
}

// Of what the alarm service was told of the module that is there. What a replay has cleared is not
// known anew until the next good poll; with a module its alarms go.
void event_watch::see_alarms(const port_description &port, const port_snapshot &at,
                             known_port &known) {
  const bool has_gone = at.module.is_known() && !at.module.present;
  for (uint32_t i = 0; i < LUM_SUB_PORTS; ++i) {
    uint64_t now = 0;
    if (!has_gone) {
      if (!at.polled) continue;
      const uint32_t ifhandle = at.copy->data.sub_port[i].ifhandle;
      const auto fed = node_.feed().fed(ifhandle);
      const auto stored = lum_linux::ptah_find(ifhandle);
      if (!fed || fed->ended < at.begun || !stored) continue;
      now = stored->all.bitmap;
    }
    for (const lum_words::alarm &kind : lum_words::alarms) {
      const uint64_t bit = bit_of(kind);
      if ((now & bit) == (known.alarms[i] & bit)) continue;
      const bool raised = (now & bit) != 0;
      const std::string name(kind.name);
      event one =
          raised ? make_event(name_of(lum_words::findings, lum_words::finding_id::alarm_raised),
                              severity::warning, fmt::format("alarm {} raised", name))
                 : make_event(event_id::alarm_cleared, severity::ok,
                              fmt::format("alarm {} cleared{}", name,
                                          has_gone ? ": its module has gone" : ""));
      one.port = port.name;
      one.sub_port = i;
      one.details = {{"alarm", name}};
      events_.add(std::move(one), fmt::format("alarm {}:{} {}", port.name, i, name));
    }
    known.alarms[i] = now;
  }
}

// A finding is known again by what it is of: its reason may tell how long it has lasted.
void event_watch::see_findings(const std::vector<finding> &found,
                               std::map<std::string, finding> &known) {
  if (found.empty() && known.empty()) return;
  std::map<std::string, finding> now;
  for (const finding &one : found) {
    if (is_told_otherwise(one)) continue;
    std::string key = fmt::format("{} {}", one.kind, one.port);
    while (now.contains(key)) key += "+";
    now.emplace(std::move(key), one);
  }
  for (const auto &[key, one] : now) {
    if (known.contains(key)) continue;
    event began = make_event(one.kind, one.how_bad, fmt::format("{}: {}", one.kind, one.reason));
    began.port = one.port;
    events_.add(std::move(began), "finding " + key);
  }
  for (const auto &[key, one] : known) {
    if (now.contains(key)) continue;
    event over = make_event(event_id::over, severity::ok, fmt::format("{} is over", one.kind));
    over.port = one.port;
    over.details = {{"finding", std::string(one.kind)}};
    events_.add(std::move(over), "finding " + key);
  }
  known = std::move(now);
}

void event_watch::see_interface_manager() {
  const auto now = node_.platform().im().statistics();
  const auto add = [&](event_id kind, uint64_t count, const char *one, const char *several,
                       const char *what) {
    if (count == 0) return;
    event told = make_event(kind, severity::warning,
                            fmt::format("the interface manager {} {}", what,
                                        lum_wording::counted(count, one, several)));
    told.details = {{"count", static_cast<int64_t>(count)}};
    events_.add(std::move(told), std::string(name_of(lum_words::events, kind)));
  };
  add(event_id::batch_refused, now.refused - manager_.refused, "batch", "batches", "has refused");
  add(event_id::batch_failed, now.failed_elements - manager_.failed_elements, "controller",
      "controllers", "has failed the requests for");
  add(event_id::batch_unanswered, now.dropped - manager_.dropped, "batch", "batches",
      "will not answer");
  const auto at = clock::now();
  if (now.pending == 0 || now.answered != manager_.answered) {
    answered_at_ = at;
    unanswered_ = false;
  } else if (!unanswered_ && at - answered_at_ >= answer_limit) {
    unanswered_ = true;
    add(event_id::batch_unanswered, now.pending, "batch", "batches",
        fmt::format("has not answered for {} s", answer_limit.count()).c_str());
  }
  manager_ = now;
}

void event_watch::see_polling() {
  const polling_report polling = node_.polling().report();
  if (!polling.last || !polling.last->lateness || polling.cycles == late_cycles_) return;
  late_cycles_ = polling.cycles;
  const auto late = *polling.last->lateness;
  if (late < late_limit) return;
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(late).count();
  event one =
      make_event(event_id::polling_late, severity::warning,
                 fmt::format("polling began {:.1f} s late", static_cast<double>(ms) / 1000));
  one.details = {{"late_ms", int64_t{ms}}};
  events_.add(std::move(one), "polling");
}

// Once all ports are what they will be, or are not in time.
void event_watch::see_settled(const std::map<uint32_t, port_snapshot> &snapshots) {
  if (settled_) return;
  const bool all = std::none_of(snapshots.begin(), snapshots.end(),
                                [](const auto &one) { return is_passing(one.second.state); });
  if (!(all && node_.is_brought_up()) && node_.uptime() < settling_limit) return;
  settled_ = true;
  std::map<port_state, std::size_t> counts;
  for (const auto &[rsip, at] : snapshots) ++counts[at.state];
  std::string text = lum_wording::counted(snapshots.size(), "port");
  const char *before = ": ";
  for (const auto &[state, count] : counts) {
    text += fmt::format("{}{} {}", before, count, name_of(lum_words::port_states, state));
    before = ", ";
  }
  events_.add(make_event(event_id::ports_settled, severity::ok, text), "ports");
}

// Of many that say the same of many ports, the ports alone.
void event_watch::tell() {
  const auto fresh = events_.untold();
  if (fresh.empty()) return;
  std::map<std::string, std::vector<const event *>> alike;
  for (const event &one : fresh) alike[one.kind + " " + one.text].push_back(&one);
  for (const event &one : fresh) {
    const auto &same = alike[one.kind + " " + one.text];
    const bool is_many = same.size() > most_lines && !one.port.empty();
    if (is_many && same.front() != &one) continue;
    std::string text = place_of(one) + one.text;
    if (is_many) {
      text = lum_wording::counted(same.size(), "port");
      for (std::size_t i = 0; i < std::min(same.size(), most_names); ++i) {
        text += fmt::format("{}{}", i == 0 ? " (" : ", ", same[i]->port);
      }
      text += fmt::format("{}): {}", same.size() > most_names ? ", ..." : "", one.text);
    }
    if (one.left_out != 0) text += fmt::format(" (and {} like it before)", one.left_out);
    outlets_.tell({one, is_many, std::move(text), node_.node().name});
  }
}

}  // namespace lumd
