#include "printing/node_text.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/port_cells.h"
#include "printing/store_text.h"
#include "wording/numbers.h"

namespace lumctl {
namespace {

using lum_wording::counted;

std::string states_of(const json &counts) {
  std::string text;
  for (const auto &[state, count] : counts.items()) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count.get<unsigned>(), state);
  }
  return text.empty() ? "none" : text;
}

// The library counts a controller again with each replay.
std::string controllers_of(const json &node) {
  const auto existing = node.at("controllers_existing").get<unsigned>();
  const auto counted = node.at("controllers").get<unsigned>();
  std::string text = fmt::format("{}", existing);
  if (counted != existing) text += fmt::format(", the library counts {}", counted);
  if (node.at("resync").get<bool>()) text += ", replayed since the last creation or resync";
  return text;
}

// The store, what it last failed at, and the one before it when that was not usable.
std::string describe_store(const json &store) {
  std::string text =
      fmt::format("{}: {}, {}, {}", text_or_dash(store.at("file")),
                  store.at("entries").is_null()
                      ? "entries not known"
                      : counted(store.at("entries").get<std::uint64_t>(), "entry", "entries"),
                  counted(store.at("writes").get<std::uint64_t>(), "write"),
                  counted(store.at("failures").get<std::uint64_t>(), "failure"));
  if (store.contains("last_failure")) {
    text += ", the last: " + text_or_dash(store.at("last_failure"));
  }
  text = line("Checkpoints", text);
  if (!store.contains("set_aside")) return text;
  const json &aside = store.at("set_aside");
  return text +
         line("Set aside", fmt::format("{}: was not usable: {}", text_or_dash(aside.at("file")),
                                       text_or_dash(aside.at("reason"))));
}

std::string describe_record(const json &events) {
  std::string text = fmt::format("number {} is the latest", events.at("last").get<std::uint64_t>());
  if (const auto lost = events.at("lost").get<std::uint64_t>(); lost > 0) {
    text += fmt::format(", {} lost", lost);
  }
  if (const json &problem = events.at("problem"); !problem.is_null()) {
    text += ", they are not kept: " + text_or_dash(problem);
  }
  return line("Events", text);
}

std::string describe_trace(const json &channel) {
  std::string text = fmt::format("{}: {}", text_or_dash(channel.at("file")),
                                 counted(channel.at("lines").get<std::uint64_t>(), "line"));
  if (const auto failures = channel.at("failures").get<std::uint64_t>(); failures > 0) {
    text += fmt::format(", {} could not be written", failures);
  }
  if (const json &reason = channel.at("reason"); !reason.is_null()) {
    text += ", it cannot be written now: " + text_or_dash(reason);
  }
  return line("Trace", text);
}

std::string describe_polling_of(const json &node) {
  std::string text;
  if (const json &halt = node.at("halt"); halt.is_object()) {
    text += line("Polling", fmt::format("none for {} s: {}", number_or_dash(halt.at("for_s"), 0),
                                        text_or_dash(halt.at("reason"))));
  }
  for (const json &reason : node.at("never_polled")) text += line("Polling", text_or_dash(reason));
  return text;
}

}  // namespace

std::string describe_node(const json &node) {
  std::string text;
  text += line("Node", fmt::format("{} (rack {})", text_or_dash(node.at("name")),
                                   node.at("rack").get<unsigned>()));
  text +=
      line("Driver",
           fmt::format("lumd {}, {} start at {}, up for {} s", text_or_dash(node.at("version")),
                       node.at("restart").get<bool>() ? "warm" : "cold",
                       text_or_dash(node.at("started")), node.at("uptime_s").get<std::int64_t>()));
  text += line("Description", text_or_dash(node.at("description")));
  text += line("Ports", fmt::format("{}: {}", node.at("ports").get<unsigned>(),
                                    states_of(node.at("port_states"))));
  text += line("Controllers", controllers_of(node));
  text += describe_polling_of(node);
  for (const json &one : node.at("troubles")) {
    text += line("Trouble", fmt::format("port {}: {}", text_or_dash(one.at("port")),
                                        text_or_dash(one.at("reason"))));
  }
  text += describe_store(node.at("checkpoints"));
  text += describe_node_store(node.at("store"));
  text += describe_record(node.at("events"));
  for (const json &channel : node.at("traces")) text += describe_trace(channel);
  return text;
}

}  // namespace lumctl
