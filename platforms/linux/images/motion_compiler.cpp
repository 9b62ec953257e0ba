#include "images/motion_compiler.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>

#include "images/image_places.h"
#include "wording/nearest.h"

namespace lum_linux {
namespace {

constexpr double max_amount = 100;
constexpr double max_time_s = 86400;
constexpr std::size_t longest_reading_name = 4096;

struct movable {
  std::string name;
  word_unit unit;
  std::optional<std::size_t> place;  // among a sub-port's readings; nothing: it is the module's
};

std::vector<movable> all_movable() {
  std::vector<movable> all;
  for (std::size_t i = 0; i < reading_count; ++i) {
    const bool is_power = i < power_count;
    all.push_back({fmt::format("{}-{}", is_power ? "power" : "reading", i),
                   is_power ? word_unit::power : word_unit::tenths, i});
  }
  all.push_back({"temperature", word_unit::temperature, {}});
  all.push_back({"supply", word_unit::supply, {}});
  return all;
}

// One table while it is read.
class motion_reader {
 public:
  motion_reader(toml_table &table, problem_list &problems) : table_(table), problems_(problems) {}

  // Nothing when its place is not known.
  std::optional<reading_motion> read() {
    const bool has_place = read_place();
    const auto seed = table_.integer("seed", 0, UINT32_MAX, 1);
    if (seed) motion_.seed = static_cast<uint32_t>(seed->value);
    read_amounts();
    table_.refuse_unknown_keys();
    return has_place ? std::optional(motion_) : std::nullopt;
  }

 private:
  void complain(uint32_t line, std::string text) { problems_.add(line, std::move(text)); }

  bool read_place() {
    const auto name = table_.text("reading", longest_reading_name);
    if (!name) {
      table_.integer("sub_port", 0, sub_ports_places.size() - 1, 0);
      return false;
    }
    const auto known = all_movable();
    const auto found = std::find_if(known.begin(), known.end(),
                                    [&](const movable &one) { return one.name == name->value; });
    if (found == known.end()) {
      std::vector<std::string_view> names(known.size());
      std::transform(known.begin(), known.end(), names.begin(),
                     [](const movable &one) { return std::string_view(one.name); });
      complain(name->line,
               fmt::format("'reading' is \"{}\", expected one of {}{}", name->value,
                           fmt::join(names, ", "), lum_wording::did_you_mean(name->value, names)));
      table_.integer("sub_port", 0, sub_ports_places.size() - 1, 0);
      return false;
    }
    motion_.unit = found->unit;
    if (!found->place) return read_place_of_module(*found);
    const auto sub_port = table_.integer("sub_port", 0, sub_ports_places.size() - 1);
    if (!sub_port) return false;
    const auto &places = sub_ports_places[static_cast<std::size_t>(sub_port->value)];
    motion_.offset = places.readings[*found->place];
    return true;
  }

  bool read_place_of_module(const movable &of) {
    motion_.offset =
        of.unit == word_unit::temperature ? temperature_place.offset : supply_place.offset;
    if (const auto given = table_.any("sub_port")) {
      complain(given->line,
               fmt::format("'sub_port' is given, expected none: '{}' is of the module", of.name));
    }
    return true;
  }

  void read_amounts() {
    number("noise", 0, max_amount, motion_.noise);
    number("drift_per_hour", -max_amount, max_amount, motion_.drift_per_hour);
    number("swing", -max_amount, max_amount, motion_.swing);
    number("step", -max_amount, max_amount, motion_.step);
    number("period_s", 1, max_time_s, motion_.period_s);
    number("step_after_s", 0, max_time_s, motion_.step_after_s);
    number("step_for_s", 1, max_time_s, motion_.step_for_s);
    number("step_every_s", 1, max_time_s, motion_.step_every_s);
    wants("swing", "period_s");
    wants("period_s", "swing");
    for (const char *key : {"step_after_s", "step_for_s", "step_every_s"}) wants(key, "step");
    wants("step_every_s", "step_for_s");
    if (motion_.step_every_s > 0 && motion_.step_every_s <= motion_.step_for_s) {
      complain(table_.any("step_every_s")->line,
               fmt::format("'step_every_s' is {}, expected more than the {} of 'step_for_s'",
                           motion_.step_every_s, motion_.step_for_s));
    }
    if (!table_.has("noise") && !table_.has("drift_per_hour") && !table_.has("swing") &&
        !table_.has("step")) {
      complain(table_.line(),
               "nothing moves the reading, expected noise, drift_per_hour, swing or step");
    }
  }

  void number(std::string_view key, double min, double max, double &into) {
    if (const auto found = table_.number(key, min, max)) into = found->value;
  }

  void wants(std::string_view key, std::string_view other) {
    if (!table_.has(key) || table_.has(other)) return;
    complain(table_.any(key)->line,
             fmt::format("'{}' is given, expected '{}' beside it", key, other));
  }

  toml_table &table_;
  problem_list &problems_;
  reading_motion motion_;
};

}  // namespace

std::vector<reading_motion> compile_motions(toml_table &module, problem_list &problems) {
  std::vector<reading_motion> motions;
  std::map<uint32_t, uint32_t> lines;  // by the word's offset
  for (toml_table &table : module.tables("motion", "[[motion]]", false, "the motion")) {
    const auto motion = motion_reader(table, problems).read();
    if (!motion) continue;
    const auto [first, is_new] = lines.emplace(motion->offset, table.line());
    if (is_new) {
      motions.push_back(*motion);
    } else {
      problems.add(table.line(), fmt::format("'reading' has a motion in line {} already, expected "
                                             "one of its own for each",
                                             first->second));
    }
  }
  return motions;
}

}  // namespace lum_linux
