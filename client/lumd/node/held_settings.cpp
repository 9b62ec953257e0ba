#include "node/held_settings.h"

#include <fmt/format.h>

#include <span>

#include "images/image_places.h"
#include "lum_linux/image.h"
#include "node/driver.h"
#include "node/port_snapshot.h"

namespace lumd {
namespace {

using lum_linux::port_description;
using lum_linux::sub_port_places;

// What the library writes for the mode 3, and for any other.
constexpr uint32_t mode_3_register = 2;
constexpr uint32_t other_mode_register = 1;

// One page of a module, as far as it could be read.
struct memory_page {
  std::array<uint8_t, 2 *lum_linux::module_page_size> bytes = {};
  uint32_t shift = 0;  // of its offsets
  bool is_busy = false;
  std::string reason;  // why it could not be read

  uint32_t byte(uint32_t offset) const { return bytes.at(offset + shift); }
  uint32_t word(uint32_t offset) const { return byte(offset) << 8 | byte(offset + 1); }
};

// Why the memory of a module in this state cannot be looked at; empty when it can.
std::string reason_against_look(const lum_linux::module_status &module) {
  if (module.place_code != 0) return why_unreachable(module);
  if (!module.is_known()) return "it is not known whether there is a module";
  return module.present ? "" : "the cage is empty";
}

memory_page read_page(driver &node, const port_description &port, uint32_t number) {
  memory_page page;
  const cerrno rc = node.platform().modules().peek(port.rsip, number, 0, page.bytes);
  if (rc == lum_linux::module_busy) {
    page.is_busy = true;
    page.reason = "a transfer does not end";
  } else if (!CERR_IS_OK(rc)) {
    page.reason = fmt::format("page {} cannot be read: {}", number, cerr_strerror(rc));
  }
  return page;
}

// Which page that is depends on the module's memory map, which its identity tells.
memory_page read_layout_page(driver &node, const port_description &port, const port_snapshot &at) {
  if (!at.copy || !at.is_filled || at.copy->data.vendor.fw_version == 0) {
    memory_page unknown;
    unknown.reason = "the module's memory map is not known";
    return unknown;
  }
  const bool is_new = at.copy->data.new_memmap != 0;
  memory_page page =
      read_page(node, port, is_new ? lum_linux::new_layout_page : lum_linux::old_layout_page);
  if (is_new) page.shift = lum_linux::new_layout_shift;
  return page;
}

held_setting word_of(const memory_page &page, uint32_t offset, bool is_signed) {
  const uint32_t raw = page.word(offset);
  const int32_t number = is_signed ? static_cast<int16_t>(raw) : static_cast<int32_t>(raw);
  return {raw, {}, static_cast<double>(number) / module_scale, {}};
}

held_setting flag_of(const memory_page &page, uint32_t offset) {
  const uint32_t raw = page.byte(offset);
  return {raw, {}, raw & 1, {}};
}

held_setting mode_of(const memory_page &page, uint32_t offset) {
  held_setting held = {page.byte(offset), {}, {}, {}};
  if (held.raw == mode_3_register) held.value = 3;
  return held;
}

held_setting threshold_of(const memory_page &page, uint32_t offset) {
  held_setting held = word_of(page, offset + 2, true);
  held.upper = page.word(offset);
  return held;
}

bool is_on_layout_page(setting_id id) {
  return id != setting_id::threshold && id != setting_id::p2_setting;
}

held_setting held_on(const memory_page &page, setting_id id, uint32_t sub_port) {
  if (!has_register(id, sub_port)) return {{}, {}, {}, "only sub-port 1 has it"};
  if (!page.reason.empty()) return {{}, {}, {}, page.reason};
  const sub_port_places &places = lum_linux::sub_ports_places[sub_port];
  switch (id) {
    case setting_id::threshold:
      return threshold_of(page, places.thresholds);
    case setting_id::p2_setting:
      return word_of(page, places.p2_setting, false);
    case setting_id::mode:
      return mode_of(page, places.status[2]);
    case setting_id::setting_a:
      return word_of(page, places.setting_a, false);
    case setting_id::setting_b:
      return word_of(page, places.setting_b, false);
    case setting_id::enable:
      return flag_of(page, places.status[1]);
    case setting_id::sub1:
      return flag_of(page, places.status[0]);
  }
  return {{}, {}, {}, "nothing is known of its register"};
}

uint16_t tenfold_of(uint32_t value) { return static_cast<uint16_t>(value * module_scale); }

}  // namespace

held_settings not_held(const std::string &reason) {
  held_settings all;
  for (auto &sub_port : all.of) {
    for (held_setting &one : sub_port) one.reason = reason;
  }
  return all;
}

held_settings read_held(driver &node, const port_description &port) {
  const port_snapshot at = look_at(node, port);
  if (const auto reason = reason_against_look(at.module); !reason.empty()) return not_held(reason);
  const memory_page thresholds = read_page(node, port, lum_linux::threshold_page);
  if (thresholds.is_busy) return not_held(thresholds.reason);  // so would the other page be
  const memory_page layout = read_layout_page(node, port, at);
  const auto after = node.platform().modules().status(port.rsip);
  if (!after || after->insertion != at.module.insertion) {
    return not_held("another module was put in meanwhile");
  }
  held_settings all;
  for (uint32_t sub_port = 0; sub_port < LUM_SUB_PORTS; ++sub_port) {
    for (std::size_t i = 0; i < settings.size(); ++i) {
      const setting_id id = settings[i].id;
      all.of[sub_port][i] = held_on(is_on_layout_page(id) ? layout : thresholds, id, sub_port);
    }
  }
  return all;
}

bool has_register(setting_id id, uint32_t sub_port) {
  return id != setting_id::sub1 || sub_port == 1;
}

bool agrees(const setting &setting, const lum_port_cfg &in_force, const held_setting &held) {
  const uint32_t value = in_force.*setting.field;
  switch (setting.id) {
    case setting_id::threshold:
      return held.raw == tenfold_of(value) &&
             held.upper == static_cast<uint16_t>(tenfold_of(value) + threshold_distance);
    case setting_id::mode:
      return held.raw == (value == 3 ? mode_3_register : other_mode_register);
    case setting_id::enable:
    case setting_id::sub1:
      return (held.raw.value_or(0) & 1) == (value & 1);
    case setting_id::p2_setting:
    case setting_id::setting_a:
    case setting_id::setting_b:
      return held.raw == tenfold_of(value);
  }
  return false;
}

}  // namespace lumd
