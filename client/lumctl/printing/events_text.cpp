#include "printing/events_text.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/port_cells.h"
#include "wording/numbers.h"
#include "words/severities.h"

namespace lumctl {
namespace {

colour paint_of(const json &event) {
  const json &how_bad = event.at("severity");
  if (how_bad == name_of(lum_words::severities, lum_words::severity::critical)) return colour::bad;
  if (how_bad == name_of(lum_words::severities, lum_words::severity::ok)) return colour::none;
  return colour::warning;
}

// What is nothing to worry about is not called by a name.
std::string severity_text(const json &event) {
  const std::string text = text_or_dash(event.at("severity"));
  return text == name_of(lum_words::severities, lum_words::severity::ok) ? "" : text;
}

std::string place_text(const json &event) {
  if (event.at("port").is_null()) return {};
  const json &sub_port = event.at("sub_port");
  return text_or_dash(event.at("port")) +
         (sub_port.is_null() ? "" : fmt::format(":{}", sub_port.get<unsigned>())) + ": ";
}

}  // namespace

std::string describe_event(const json &event, const style &output) {
  std::string text = place_text(event) + text_or_dash(event.at("text"));
  if (event.contains("left_out")) {
    text += fmt::format(" (and {} like it before)", event.at("left_out").get<std::uint64_t>());
  }
  const std::string how_bad = fmt::format("{:<8}", severity_text(event));
  return folded_notes(fmt::format("{}  {}  {}\n", text_or_dash(event.at("time")),
                                  painted(output, how_bad, paint_of(event)), text),
                      output);
}

std::string describe_events(const json &answer, const style &output) {
  std::string text;
  if (const auto earlier = answer.at("earlier").get<std::uint64_t>(); earlier > 0) {
    text += lum_wording::counted(earlier, "earlier event") + " not shown\n";
  }
  for (const json &event : answer.at("events")) text += describe_event(event, output);
  if (answer.at("events").empty()) text += "nothing has happened\n";
  if (!answer.at("problem").is_null()) {
    text += "What happens is not kept over a restart: " + text_or_dash(answer.at("problem")) + "\n";
  }
  if (const auto lost = answer.at("lost").get<std::uint64_t>(); lost > 0) {
    text += lum_wording::counted(lost, "event") + " since the start could not be kept\n";
  }
  return folded_notes(text, output);
}

}  // namespace lumctl
