// The thread that keeps every port's readings, flags and LED fresh.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <type_traits>

#include "base/bytes.h"
#include "base/locks.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_api/lum_api.h"
#include "lum_controller_interface/lum_controller_interface.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_api";

namespace {

constexpr unsigned poll_seconds = 5;
constexpr const char *skip_file = "/tmp/skip_dom_fetch";  // while it exists nothing is polled

using lower_page = std::array<std::uint8_t, 128>;
using status_chunk = std::array<std::uint8_t, 23>;

// Where each sub-port's readings are in the lower page, big-endian, and its status bytes in the
// status chunk. Byte 22 serves both sub-ports.
constexpr std::array reading_at{std::array{18u, 45u, 68u, 43u, 47u},
                                std::array{41u, 22u, 66u, 20u, 24u}};
constexpr std::array status_at{std::array{22u, 19u, 5u}, std::array{22u, 18u, 0u}};
static_assert(reading_at.size() == LUM_SUB_PORTS && status_at.size() == LUM_SUB_PORTS);
static_assert(reading_at[0].size() == std::extent_v<decltype(lum_dom_area::readings)> &&
                  status_at[0].size() == std::extent_v<decltype(lum_dom_area::status)>,
              "each reading and status byte has its place");
constexpr std::size_t temperature_at = 14;
constexpr std::size_t word_16_at = 16;
constexpr std::size_t firmware_at = 39;

// Every place is inside its page or chunk.
template <typename Bytes, typename Places>
consteval bool all_inside(const Places &places, std::size_t width) {
  return std::ranges::all_of(
      places, [&](std::size_t place) { return is_inside(std::tuple_size_v<Bytes>, place, width); });
}
static_assert(all_inside<lower_page>(reading_at[0], 2) && all_inside<lower_page>(reading_at[1], 2));
static_assert(all_inside<status_chunk>(status_at[0], 1) &&
              all_inside<status_chunk>(status_at[1], 1));
static_assert(all_inside<lower_page>(module_flag_places, 1));
static_assert(all_inside<lower_page>(std::array{temperature_at, word_16_at, firmware_at}, 2));

void poll_all_ports(cerrno &last_access_rc);
void visit(lum_port_data &port, cerrno &last_access_rc);
void poll(lum_port_data &port, bool passed_by, cerrno &last_access_rc);
void store_readings(lum_port_data &port, const lower_page &lower, const status_chunk &chunk);
std::uint32_t led_for(const lower_page &lower);
bool is_polled(const lum_port_data &port);

}  // namespace

// last_access_rc is the code of the last transfer that failed, until a poll succeeds.
void *lum::dom_thread(void *) {
  LUM_INFO(11, "DOM thread created \n");
  pthread_setname_np(pthread_self(), "lum_dom_thread");
  cerrno last_access_rc = 0;
  for (;;) {
    sleep(poll_seconds);
    struct stat found;
    if (stat(skip_file, &found) == 0) continue;
    if (shared_load(lum_get_ctx()->controller_count) == 0) continue;
    poll_all_ports(last_access_rc);
  }
}

namespace {

void poll_all_ports(cerrno &last_access_rc) {
  for (lum_port_node_info &node : all_ports()) {
    lum_port_data &port = node.data;
    std::uint32_t upgrading = 0;
    lum_optics_get_fw_upgrd_status(rsip_of(port), &upgrading);
    const std::uint32_t enabled = shared_load(port.is_dom_enabled);
    const std::uint32_t disabled = shared_load(port.transceiver_disabled);
    if (enabled == 0 || disabled != 0 || upgrading != 0) {
      LUM_INFO(13,
               "DOM thread: DOM is disabled for rsip=0x%x, is_dom_enabled %d, "
               "module_fw_upg_in_prog %d, transceiver_disabled %d\n",
               rsip_of(port), enabled, upgrading, disabled);
      continue;
    }
    visit(port, last_access_rc);
  }
}

// After a failed transfer the visits are made without the mutex until a poll succeeds: each lets go
// of it at once, and its second release is refused. A port whose mutex a deletion keeps is passed
// by.
void visit(lum_port_data &port, cerrno &last_access_rc) {
  port_hold lock(port, {"lum_dom_thread", 302}, after_failure::leave);
  if (last_access_rc != 0) {
    lock.release();
    LUM_ERROR(14, "module access lock failed with rc %d \n", last_access_rc);
  }
  poll(port, lock.barred() || is_replaced(port), last_access_rc);
  lock.release();
}

void poll(lum_port_data &port, bool passed_by, cerrno &last_access_rc) {
  if (passed_by || !is_polled(port)) {
    LUM_INFO(15, "DOM thread: DOM is disabled-2for rsip=0x%x\n", rsip_of(port));
    return;
  }
  lower_page lower = {};
  cerrno rc = lum_i2c_read_write(module_read, port.slot, port.instance, port.port, 0, 0,
                                 static_cast<std::int32_t>(lower.size()), lower.data());
  if (rc != 0) {
    last_access_rc = rc;
    LUM_ERROR(16, "module access failed with rc %d for rsip=0x%x\n", rc, rsip_of(port));
    return;
  }
  status_chunk chunk = {};
  const bool new_memmap = shared_load(port.new_memmap) != 0;
  rc = lum_i2c_read_write(module_read, port.slot, port.instance, port.port, new_memmap ? 1 : 3,
                          new_memmap ? 192 : 128, static_cast<std::int32_t>(chunk.size()),
                          chunk.data());
  if (rc != 0) {
    last_access_rc = rc;
    LUM_ERROR(17, "module access failed with rc %d \n", rc);
    return;
  }
  store_readings(port, lower, chunk);
  last_access_rc = 0;
  const std::uint32_t led = led_for(lower);
  if (shared_load(port.led_state) != led) lum_optics_led_set_state(rsip_of(port), 0, led);
}

void store_readings(lum_port_data &port, const lower_page &lower, const status_chunk &chunk) {
  for (std::uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
    lum_dom_area &dom = port.dom[s];
    for (std::size_t i = 0; i < std::size(dom.readings); ++i) {
      shared_store(dom.readings[i], get_be16(lower, reading_at[s][i]));
    }
    for (std::size_t i = 0; i < std::size(dom.status); ++i) {
      shared_store(dom.status[i], chunk[status_at[s][i]]);
    }
  }
  shared_store(port.vendor.fw_version, get_be16(lower, firmware_at));
  shared_store(port.module_temperature, static_cast<std::int16_t>(get_be16(lower, temperature_at)));
  shared_store(port.module_word_16, get_be16(lower, word_16_at));
  for (std::size_t i = 0; i < module_flag_places.size(); ++i) {
    shared_store(port.module_flags[i], lower[module_flag_places[i]]);
  }
}

std::uint32_t led_for(const lower_page &lower) {
  const bool fault = ((lower[10] | lower[12]) & 0x22) != 0 || lower[13] != 0;
  return fault ? LUM_LED_FAULT : LUM_LED_NORMAL;
}

bool is_polled(const lum_port_data &port) {
  return shared_load(port.is_dom_enabled) != 0 && shared_load(port.transceiver_disabled) == 0;
}

}  // namespace
