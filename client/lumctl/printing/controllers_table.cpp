#include "printing/controllers_table.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/port_cells.h"
#include "wording/numbers.h"
#include "words/controller_states.h"

namespace lumctl {
namespace {

std::string hexadecimal(const json &handle) {
  return handle.is_number() ? fmt::format("0x{:08x}", handle.get<std::uint32_t>()) : "-";
}

std::string count_or_dash(const json &number) {
  return number.is_number() ? fmt::format("{}", number.get<std::uint32_t>()) : "-";
}

// As an update has told it.
std::string state_or_dash(const json &state) {
  if (!state.is_number()) return "-";
  return std::string(state == 0 ? lum_words::controller_down : lum_words::controller_up);
}

// Whether the library has the controller under the same handle.
cell library_cell(const json &controller) {
  if (controller.at("agrees").get<bool>()) return {"agrees", colour::good};
  if (controller.at("library_ifhandle").is_null()) return {"does not know it", colour::warning};
  return {"has " + hexadecimal(controller.at("library_ifhandle")), colour::bad};
}

}  // namespace

std::string describe_controllers(const json &answer, const style &output) {
  table shown;
  shown.formats = {{{{"CONTROLLER"}, {"IFHANDLE"}, {"STATE"}, {"UPDATES", true}, {"LIBRARY"}}, 0}};
  for (const json &controller : answer.at("controllers")) {
    shown.records.push_back({{{{{text_or_dash(controller.at("name")), colour::strong},
                                {hexadecimal(controller.at("ifhandle"))},
                                {state_or_dash(controller.at("state"))},
                                {count_or_dash(controller.at("updates"))},
                                library_cell(controller)}}},
                             {}});
  }
  const json &batches = answer.at("batches");
  const auto count = [&batches](const char *name) { return batches.at(name).get<std::uint64_t>(); };
  const std::string batched =
      fmt::format("{}; batches: {} create, {} delete, {} update, {} refused, {} pending\n",
                  lum_wording::counted(shown.records.size(), "controller"), count("create"),
                  count("delete"), count("update"), count("refused"), count("pending"));
  return render(shown, output) + folded_notes(batched, output);
}

}  // namespace lumctl
