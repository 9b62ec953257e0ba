#include "port_model.h"

#include <time.h>

#include <condition_variable>
#include <cstring>
#include <mutex>

#include "lum.h"

namespace {

constexpr std::uint32_t ports_per_slot = 250;

// The polling thread stands here between two cycles.
struct cycle_gate {
  std::mutex mutex;
  std::condition_variable changed;
  bool is_waiting = false;
  bool is_due = false;
  double begun = 0;  // seconds
  double ended = 0;
};

cycle_gate &gate() {
  static auto *the_gate = new cycle_gate;  // the thread stands there for ever
  return *the_gate;
}

void wait_for_cycle() {
  const double ended = bench::thread_seconds();
  cycle_gate &at = gate();
  std::unique_lock lock(at.mutex);
  at.ended = ended;
  at.is_waiting = true;
  at.changed.notify_all();
  at.changed.wait(lock, [&] { return at.is_due; });
  at.is_due = false;
  at.is_waiting = false;
  lock.unlock();
  at.begun = bench::thread_seconds();
}

cerrno never_upgrading(std::uint32_t, std::uint32_t *) { return 0; }

void start_library() {
  static bool is_started = false;
  if (is_started) return;
  is_started = true;
  lum_platform_cbs callbacks = {};
  callbacks.fw_upgrade_status = never_upgrading;
  lum_infra_params params = {};
  params.platform_cbs = &callbacks;
  std::strcpy(params.process_name, "bench");
  lum_infra_init(&params);
}

void name_controllers(std::uint32_t port) {
  for (std::uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
    char name[LUM_IFNAME_SIZE];
    lum_construct_if_name(LUM_IFTYPE_OTS, 0, 1 + port / ports_per_slot, 0, port % ports_per_slot, 0,
                          s, name);
    lum_update_ifhandle(name, bench::first_ifhandle + 2 * port + s);
  }
}

std::uint32_t made = 0;

}  // namespace

// The polling thread is the only one that calls it.
extern "C" unsigned sleep(unsigned) {
  wait_for_cycle();
  return 0;
}

double bench::thread_seconds() {
  timespec now = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double bench::polling_cycle() {
  cycle_gate &at = gate();
  std::unique_lock lock(at.mutex);
  at.changed.wait(lock, [&] { return at.is_waiting && !at.is_due; });
  at.is_waiting = false;
  at.is_due = true;
  at.changed.notify_all();
  at.changed.wait(lock, [&] { return at.is_waiting; });
  return at.ended - at.begun;
}

std::uint32_t bench::port_count() { return made; }

std::uint32_t bench::rsip_of(std::uint32_t port) {
  return (1 + port / ports_per_slot) << 16 | port % ports_per_slot;
}

void bench::grow_to(std::uint32_t ports) {
  start_library();
  for (; made < ports; ++made) {
    const std::uint32_t number = made % ports_per_slot;
    const std::uint32_t handle = made + 1;
    lum_add_device_to_ports_db(0, 1 + made / ports_per_slot, 0, 1, &number, &handle);
    name_controllers(made);
    lum_port_data &port = lum_get_port_node_from_port_handle(handle)->data;
    port.inserted = 1;
    port.is_dom_enabled = 1;
    port.led_state = LUM_LED_NORMAL;
  }
  // Whatever 8 bits would make of it: it is not 0.
  lum_get_ctx()->controller_count = 1;
}
