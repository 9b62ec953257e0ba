// Every call of the library from many threads at once, on a platform in which everything goes
// wrong.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "crew.h"
#include "lum_linux/leds.h"
#include "lum_linux/services.h"
#include "node.h"
#include "seams.h"
#include "settings.h"
#include "weather.h"

namespace {

using namespace std::chrono_literals;
using stress::below;
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

// One thread for each two slots creates them and deletes some of their ports again.
void create_and_delete(const node &node, worker &self, uint32_t first_slot) {
  const uint32_t slot = first_slot + below(self.random, 2);
  const uint32_t choice = below(self.random, 8);
  if (choice < 5) {
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
    lum_delete_ports(0, slot, 0, static_cast<uint32_t>(ports.size()), ports.data());
  }
  self.doing("pausing");
  std::this_thread::sleep_for(std::chrono::milliseconds(below(self.random, 30)));
}

// Deletions that meet those of another thread.
void delete_any(const node &node, worker &self) {
  const port_place &port = any_port(node, self);
  self.doing("deleting a port");
  lum_delete_ports(0, port.slot, 0, 1, &port.port);
  self.doing("pausing");
  std::this_thread::sleep_for(std::chrono::milliseconds(below(self.random, 50)));
}

void update(const node &node, worker &self) {
  const port_place &port = any_port(node, self);
  if (below(self.random, 4) == 0) rest(self);
  self.doing("updating a port");
  lum_update_port(0, port.slot, 0, port.port, below(self.random, 2));
}

void configure(const node &node, worker &self) {
  const port_place &port = any_port(node, self);
  const uint32_t ifhandle = stress::ifhandle_of(port, below(self.random, LUM_SUB_PORTS));
  if (below(self.random, 4) == 0) rest(self);
  lum_hw_info_in record = {};
  for (uint64_t &word : record.words) word = self.random() & 0x000000FF000000FF;
  constexpr uint64_t bits[] = {LUM_CHANGE_THRESHOLD, LUM_CHANGE_P2_SETTING, LUM_CHANGE_MODE,
                               LUM_CHANGE_SETTINGS};
  const uint64_t changed = bits[below(self.random, 4)] | bits[below(self.random, 4)];
  self.doing("setting hardware information");
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

// How full the database was while the crew was at work.
struct population {
  uint64_t looks = 0;
  uint64_t ports = 0;      // met in all looks together
  uint64_t confirmed = 0;  // of them, with both handles
};

population watch(const node &node, std::chrono::seconds time) {
  population seen;
  for (const auto end = std::chrono::steady_clock::now() + time;
       std::chrono::steady_clock::now() < end; ++seen.looks) {
    seen.ports += stress::ports_in_database();
    for (const port_place &port : node.ports()) {
      seen.confirmed += stress::ifhandle_of(port, 0) != 0 && stress::ifhandle_of(port, 1) != 0;
    }
    std::this_thread::sleep_for(10ms);
  }
  return seen;
}

void employ(stress::crew &crew, node &node) {
  for (uint32_t slot = node.first_slot(); slot < node.first_slot() + node.slots(); slot += 2) {
    crew.add("slots " + std::to_string(slot) + " and next",
             [&node, slot](worker &self) { create_and_delete(node, self, slot); });
  }
  crew.add("delete", [&](worker &self) { delete_any(node, self); });
  crew.add("update", [&](worker &self) { update(node, self); });
  crew.add("configure", [&](worker &self) { configure(node, self); });
  crew.add("query", [&](worker &self) { query(node, self); });
  crew.add("feed", [&](worker &self) { feed(node, self); });
  crew.add("replay", [](worker &self) { replay(self); });
  crew.add("wake", [&](worker &self) { wake(node, self); });
  crew.add("weather", [&](worker &self) { change_weather(node, self); });
}

}  // namespace

TEST(lifecycle_stress, after_any_trouble_every_port_is_there_with_both_handles_and_is_polled) {
  const auto seconds = std::chrono::seconds(stress::setting("LUM_STRESS_SECONDS", 5));
  node node({});
  stress::poll_every(1ms);
  stress::crew crew(stress::setting("LUM_STRESS_SEED", 1));
  const stress::watchdog dog(seconds + 120s, [&] { return crew.report(); });

  employ(crew, node);
  const population seen = watch(node, seconds);
  crew.dismiss();
  clear_weather(node);
  ASSERT_TRUE(node.wait_idle());
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
}
