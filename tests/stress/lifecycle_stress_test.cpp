// Every call of the library from many threads at once, on a platform in which everything goes
// wrong, and what must hold meanwhile.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "crew.h"
#include "deletions.h"
#include "findings.h"
#include "led_trouble.h"
#include "lum_linux/leds.h"
#include "lum_linux/services.h"
#include "module_watch.h"
#include "node.h"
#include "seams.h"
#include "settings.h"
#include "weather.h"

namespace {

using namespace std::chrono_literals;
using stress::below;
using stress::module_watch;
using stress::node;
using stress::port_place;
using stress::worker;

const port_place &any_port(const node &node, worker &self) {
  return node.ports()[below(self.random, static_cast<uint32_t>(node.ports().size()))];
}

void rest(worker &self) {
  self.doing("resting");
  std::this_thread::sleep_for(std::chrono::microseconds(below(self.random, 1000)));
}

// A port without a handle keeps its place when its creation names it again, after a deletion.
void create_in_two_steps(node &node, worker &self, uint32_t slot) {
  const uint32_t number = below(self.random, node.ports_per_slot());
  for (const port_place &port : node.ports()) {
    if (port.slot == slot && port.port == number) node.enter_without_handle(port);
  }
  node.delete_ports(slot, {number});
  node.create_slot(slot);
}

// One thread for each two slots creates them and deletes some of their ports again.
void create_and_delete(node &node, worker &self, uint32_t first_slot) {
  const uint32_t slot = first_slot + below(self.random, 2);
  const uint32_t choice = below(self.random, 9);
  if (choice == 8) {
    self.doing("creating a slot in two steps");
    create_in_two_steps(node, self, slot);
  } else if (choice < 5) {
    self.doing("deleting a slot");
    if (choice != 0) node.delete_slot(slot);  // else ports may be created twice
    std::this_thread::sleep_for(std::chrono::milliseconds(below(self.random, 20)));
    self.doing("creating a slot");
    node.create_slot(slot);
  } else {
    self.doing("deleting ports");
    std::vector<uint32_t> ports;
    for (uint32_t port = 0; port < node.ports_per_slot(); ++port) {
      if (below(self.random, 3) == 0) ports.push_back(port);
    }
    node.delete_ports(slot, ports);
  }
  self.doing("pausing");
  std::this_thread::sleep_for(std::chrono::milliseconds(below(self.random, 30)));
}

void update(const node &node, const module_watch &watch, worker &self) {
  const port_place &port = any_port(node, self);
  if (below(self.random, 4) == 0) rest(self);
  self.doing("updating a port");
  watch.settings_asked_for();
  lum_update_port(0, port.slot, 0, port.port, below(self.random, 2));
}

void configure(const node &node, const module_watch &watch, worker &self) {
  const port_place &port = any_port(node, self);
  const uint32_t ifhandle = stress::ifhandle_of(port, below(self.random, LUM_SUB_PORTS));
  if (below(self.random, 4) == 0) rest(self);
  lum_hw_info_in record = {};
  for (uint64_t &word : record.words) word = self.random() & 0x000000FF000000FF;
  constexpr uint64_t bits[] = {LUM_CHANGE_THRESHOLD, LUM_CHANGE_P2_SETTING, LUM_CHANGE_MODE,
                               LUM_CHANGE_SETTINGS};
  const uint64_t changed = bits[below(self.random, 4)] | bits[below(self.random, 4)];
  self.doing("setting hardware information");
  watch.settings_asked_for();
  lum_set_hw_info_by_ifh(1, &ifhandle, &record, &changed);
}

void query(const node &node, worker &self) {
  const port_place &port = any_port(node, self);
  const uint32_t sub_port = below(self.random, LUM_SUB_PORTS);
  const std::string name = stress::controller_name(port, sub_port);
  self.doing("querying");
  lum_device_id_td device = {};
  uint32_t rsip = 0;
  lum_port_data *data = nullptr;
  lum_safely_get_devinfo(port.handle, sub_port, &device);
  lum_safely_get_rsip(port.handle, &rsip);
  lum_safely_get_port_info(name.c_str(), &data);
  lum_ports_db_ifname2devid(name.c_str(), &device);
  const uint32_t ifhandle = stress::ifhandle_of(port, sub_port);
  lum_ports_db_ifh2devid(ifhandle, &device);
  lum_get_s_dev_info(ifhandle, &data, &device);
  self.doing("getting hardware information");
  static thread_local lum_hw_info_out record;
  lum_get_hw_info_by_ifh(1, &ifhandle, &record);
}

void feed(const node &node, worker &self) {
  const uint32_t ifhandle =
      stress::ifhandle_of(any_port(node, self), below(self.random, LUM_SUB_PORTS));
  if (ifhandle == 0) return rest(self);
  self.doing("feeding performance monitoring");
  lum_update_pm_ptah_data(ifhandle);
  if (below(self.random, 16) == 0) lum_lib_clear_stats(1, &ifhandle);
}

void replay(worker &self) {
  self.doing("replaying");
  lum_replay_controllers();
  self.doing("resynchronising");
  lum_resync_with_ea();
  self.doing("pausing");
  std::this_thread::sleep_for(std::chrono::milliseconds(10 + below(self.random, 50)));
}

void wake(const node &node, worker &self) {
  self.doing("waking the provisioning handler");
  lum_wakeup_provisioning_thread();
  const port_place &port = any_port(node, self);
  lum_linux::ea_entry entry;
  entry.ifname = stress::controller_name(port, below(self.random, LUM_SUB_PORTS));
  entry.ifhandle = stress::ifhandle_of(port, 0);
  std::vector<bool> served;
  self.doing("serving an entity agent");
  const auto operation = below(self.random, 2) == 0 ? lum_linux::ea_operation::update
                                                    : lum_linux::ea_operation::remove;
  lum_linux::ea_run(static_cast<uint32_t>(operation), {&entry, 1}, served);
  self.doing("changing modules");
  lum_update_vendor_info(port.rsip, static_cast<int32_t>(below(self.random, 2)));
  std::this_thread::sleep_for(1ms);
}

// A replay gives every port that is left its handles, so that a deletion finds it.
uint32_t clean_up(node &node) {
  for (int attempt = 0; attempt < 10 && stress::ports_in_database() != 0; ++attempt) {
    lum_replay_controllers();
    node.wait_idle();
    node.delete_all();
    node.wait_idle();
  }
  return stress::ports_in_database();
}

// The count of controllers is eight bits wide, so after lost batches it may stand at 0, and nothing
// would be polled.
void account_for_controllers(node &node) {
  if (__atomic_load_n(&lum_get_ctx()->controller_count, __ATOMIC_RELAXED) != 0) return;
  lum_replay_controllers();
  node.wait_idle();
}

// What is wrong with a port; empty when it is there, has both handles and has been polled.
std::string trouble_with(node &node, const port_place &port) {
  const lum_port_data *data = stress::data_of(port);
  if (data == nullptr) return "is lost";
  for (uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
    const uint32_t ifhandle = stress::ifhandle_of(port, s);
    if (ifhandle == 0) return "has no handle for sub-port " + std::to_string(s);
    if (node.im().handle_of(stress::controller_name(port, s)) != ifhandle) {
      return "has a wrong handle for sub-port " + std::to_string(s);
    }
    if (stress::word(data->sub_port[s].created) != 1) return "has a controller not created";
  }
  if (stress::word(data->dom[0].readings[0]) == 0) return "is not polled";
  uint32_t led = 0;
  node.platform().leds().get_state(port.rsip, &led);
  if (led != LUM_LED_NORMAL) return "shows LED state " + std::to_string(led);
  return {};
}

std::map<uint32_t, std::string> troubles(node &node) {
  std::map<uint32_t, std::string> found;
  for (const port_place &port : node.ports()) {
    if (std::string text = trouble_with(node, port); !text.empty()) found[port.rsip] = text;
  }
  return found;
}

// What is wrong with the LEDs of ports while no thread sets one: the platform was last asked for
// the state that the port has recorded. A port that was never given one has none.
std::vector<std::string> led_troubles() {
  std::vector<std::string> found;
  lum_ports_db_walk_via_rsip(
      [](void *entry, void *context) -> int32_t {
        const auto &port = *static_cast<const lum_port_node_info *>(entry);
        const uint32_t recorded = stress::word(port.data.led_state);
        const uint32_t asked = stress::led_asked_for(port.rsip).value_or(recorded);
        if (recorded == LUM_LED_OFF || asked == recorded) return 0;
        static_cast<std::vector<std::string> *>(context)->push_back(
            "port " + std::to_string(port.rsip) + " has recorded LED state " +
            std::to_string(recorded) + ", and the LED was last asked for " + std::to_string(asked));
        return 0;
      },
      &found);
  return found;
}

// For each port, threads that set its LED at the same time, slowly.
void set_leds_at_once(const node &node) {
  stress::trouble_leds(1ms, 0);
  for (const port_place &port : node.ports()) {
    std::vector<std::thread> setting;
    for (const uint32_t state : {LUM_LED_NORMAL, LUM_LED_FAULT, LUM_LED_NORMAL, LUM_LED_FAULT}) {
      setting.emplace_back([&port, state] { lum_optics_led_set_state(port.rsip, 0, state); });
    }
    for (std::thread &each : setting) each.join();
  }
  stress::trouble_leds(0ms, 0);
}

// How full the database was while the crew was at work.
struct population {
  uint64_t looks = 0;
  uint64_t ports = 0;      // met in all looks together
  uint64_t confirmed = 0;  // of them, with both handles
};

// What watches the library, and what it has found.
struct observers {
  explicit observers(node &node) : deletions(node, found), modules(node, found) {}

  // A slow machine may need longer than it was given until each had something to look at.
  bool have_looked() const {
    const stress::look_counts looks = deletions.counts();
    const stress::transfer_counts transfers = modules.counts();
    return transfers.held_polls > 0 && transfers.settings > 0 && looks.while_kept > 0 &&
           looks.after_its_end > 0;
  }

  stress::findings found;
  stress::deletions deletions;
  module_watch modules;
};

// Up to the first finding.
population watch(const node &node, std::chrono::seconds time, const observers &watching) {
  population seen;
  const auto end = std::chrono::steady_clock::now() + time;
  for (; watching.found.count() == 0; ++seen.looks) {
    if (std::chrono::steady_clock::now() >= end && watching.have_looked()) break;
    seen.ports += stress::ports_in_database();
    for (const port_place &port : node.ports()) {
      seen.confirmed += stress::ifhandle_of(port, 0) != 0 && stress::ifhandle_of(port, 1) != 0;
    }
    std::this_thread::sleep_for(10ms);
  }
  return seen;
}

void employ(stress::crew &crew, node &node, observers &watching) {
  stress::deletions &deletions = watching.deletions;
  const module_watch &modules = watching.modules;
  for (uint32_t slot = node.first_slot(); slot < node.first_slot() + node.slots(); slot += 2) {
    crew.add("slots " + std::to_string(slot) + " and next",
             [&node, slot](worker &self) { create_and_delete(node, self, slot); });
  }
  crew.add("delete, ending", [&deletions](worker &self) { deletions.from_threads_that_end(self); });
  crew.add("delete, living on", [&deletions](worker &self) { deletions.from_one_thread(self); });
  crew.add("try mutexes", [&deletions](worker &self) { deletions.try_mutex(self); });
  crew.add("update", [&node, &modules](worker &self) { update(node, modules, self); });
  crew.add("configure", [&node, &modules](worker &self) { configure(node, modules, self); });
  crew.add("query", [&](worker &self) { query(node, self); });
  crew.add("feed", [&](worker &self) { feed(node, self); });
  crew.add("replay", [](worker &self) { replay(self); });
  crew.add("wake", [&](worker &self) { wake(node, self); });
  crew.add("weather", [&](worker &self) { change_weather(node, self); });
}

void tell(node &node, const stress::crew &crew, const population &seen) {
  const lum_linux::im_statistics im = node.im().statistics();
  std::printf("%s%.1f of %zu ports at a time, %.1f of them with both handles; ",
              crew.report().c_str(), static_cast<double>(seen.ports) / seen.looks,
              node.ports().size(), static_cast<double>(seen.confirmed) / seen.looks);
  std::printf(
      "%lu polling cycles, %lu batches answered, %lu refused, %lu dropped, %lu elements failed, "
      "%lu restarts\n",
      static_cast<unsigned long>(stress::polling_cycles()), static_cast<unsigned long>(im.answered),
      static_cast<unsigned long>(im.refused), static_cast<unsigned long>(im.dropped),
      static_cast<unsigned long>(im.failed_elements), static_cast<unsigned long>(im.restarts));
}

void expect_no_finding(const observers &watching) {
  const stress::transfer_counts transfers = watching.modules.counts();
  const stress::look_counts looks = watching.deletions.counts();
  std::printf(
      "%lu polls looked at, %lu of them with the mutex, %lu bytes of settings, mutexes tried %lu "
      "times while kept and %lu times after a deletion's thread had ended\n",
      static_cast<unsigned long>(transfers.polls), static_cast<unsigned long>(transfers.held_polls),
      static_cast<unsigned long>(transfers.settings), static_cast<unsigned long>(looks.while_kept),
      static_cast<unsigned long>(looks.after_its_end));
  for (const std::string &text : watching.found.first()) ADD_FAILURE() << text;
  EXPECT_EQ(watching.found.count(), 0u);
}

stress::node_shape troubled_node() {
  stress::node_shape shape;
  shape.between = [](const lum_platform_cbs &platform) {
    return stress::watched_modules(stress::troubled_leds(platform));
  };
  return shape;
}

}  // namespace

TEST(lifecycle_stress, after_any_trouble_every_port_is_there_with_both_handles_and_is_polled) {
  const auto seconds = std::chrono::seconds(stress::setting("LUM_STRESS_SECONDS", 5));
  node node(troubled_node());
  stress::poll_every(1ms);
  stress::crew crew(stress::setting("LUM_STRESS_SEED", 1));
  const stress::watchdog dog(seconds + 120s, [&] { return crew.report(); });

  {
    observers watching(node);
    employ(crew, node, watching);
    const population seen = watch(node, seconds, watching);
    crew.dismiss();
    clear_weather(node);
    ASSERT_TRUE(node.wait_idle());
    tell(node, crew, seen);
    expect_no_finding(watching);
  }
  for (const std::string &text : led_troubles()) ADD_FAILURE() << text;
  EXPECT_TRUE(lum_linux::blocked_threads().empty());

  stress::poll_every(1ms);
  EXPECT_EQ(clean_up(node), 0u) << "ports that cannot be deleted";
  node.create_all();
  ASSERT_TRUE(node.wait_idle());
  account_for_controllers(node);
  auto found = troubles(node);
  for (int i = 0; i < 600 && !found.empty(); ++i) {
    std::this_thread::sleep_for(50ms);
    found = troubles(node);
  }
  for (const auto &[rsip, text] : found) ADD_FAILURE() << "port " << rsip << " " << text;
  EXPECT_EQ(stress::ports_in_database(), node.ports().size());
  EXPECT_TRUE(lum_linux::blocked_threads().empty());

  stress::poll_on_demand();
  ASSERT_TRUE(stress::run_polling_cycle(60s));
  set_leds_at_once(node);
  for (const std::string &text : led_troubles()) ADD_FAILURE() << text << ", set at once";
}
