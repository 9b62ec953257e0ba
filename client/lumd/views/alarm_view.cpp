#include "alarm_view.h"

#include <fmt/format.h>

#include <algorithm>

#include "alarms.h"
#include "times.h"

namespace lumd {
namespace {

std::string name_of_bit(unsigned bit) {
  const auto kinds = alarm_kinds();
  const auto found = std::find_if(kinds.begin(), kinds.end(), [bit](const alarm_kind &kind) {
    return kind.bit == uint64_t{1} << bit;
  });
  return found == kinds.end() ? fmt::format("bit-{}", bit) : std::string(found->name);
}

// How often each alarm has been raised since the counters were set back.
json show_raise_counts(const ptah_al_all &all) {
  json counts = json::object();
  for (std::size_t bit = 0; bit < lum_linux::ptah_counted_bits; ++bit) {
    const uint32_t count = all.values[lum_linux::ptah_first_raise + bit];
    if (count > 0) counts[name_of_bit(static_cast<unsigned>(bit))] = count;
  }
  return counts;
}

}  // namespace

json alarm_names(uint64_t bitmap) {
  json names = json::array();
  for (unsigned bit = 0; bit < 64; ++bit) {
    if ((bitmap >> bit & 1) != 0) names.push_back(name_of_bit(bit));
  }
  return names;
}

json show_alarms(const lum_linux::port_description &port, const port_copy &copy,
                 std::size_t sub_port) {
  const uint32_t ifhandle = copy.data.sub_port[sub_port].ifhandle;
  const auto stored = ifhandle == 0 ? std::nullopt : lum_linux::ptah_find(ifhandle);
  if (!stored) return nullptr;
  json shown = {{"port", port.name},
                {"sub_port", sub_port},
                {"ifname", stored->name},
                {"ifhandle", ifhandle},
                {"inserted", copy.data.inserted != 0},
                {"bitmap", stored->all.bitmap},
                {"raised", alarm_names(stored->all.bitmap)},
                {"injected", alarm_names(copy.data.test[sub_port].test_alarm_bits)}};
  if (stored->changed) shown["changed_age_s"] = seconds_since(*stored->changed);
  if (stored->cleared) shown["cleared_age_s"] = seconds_since(*stored->cleared);
  shown["counters"] = {{"publishes", stored->all.values[lum_linux::ptah_publishes]},
                       {"bitmap_changes", stored->all.values[lum_linux::ptah_bitmap_changes]},
                       {"raised", show_raise_counts(stored->all)}};
  return shown;
}

}  // namespace lumd
