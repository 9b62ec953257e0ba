// Walks and look-ups in the ports database while ports come and go, on the library's own code: what
// becomes of removed nodes is counted.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "crew.h"
#include "lum.h"
#include "lum_ports_db/lum_ports_db.h"
#include "lum_ports_db/node_keeper.h"
#include "settings.h"

namespace {

using namespace std::chrono_literals;
using stress::below;
using stress::worker;

constexpr uint32_t first_slot = 1;
constexpr uint32_t slots = 4;
constexpr uint32_t ports_per_slot = 16;  // even ones stay, odd ones come and go

uint32_t rsip_of(uint32_t slot, uint32_t port) { return lum::pack_rsip(0, slot, 0, port); }
uint32_t handle_of(uint32_t slot, uint32_t port) { return slot << 8 | port; }
uint32_t ifhandle_of(uint32_t slot, uint32_t port, uint32_t sub_port) {
  return 0x1000000 + (slot << 16) + (port << 4) + sub_port;
}

void add_port(uint32_t slot, uint32_t port) {
  const uint32_t handle = handle_of(slot, port);
  lum_add_device_to_ports_db(0, slot, 0, 1, &port, &handle);
}

void name_controllers(uint32_t slot, uint32_t port) {
  for (uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
    char name[LUM_IFNAME_SIZE];
    lum_construct_if_name(LUM_IFTYPE_OTS, 0, slot, 0, port, 0, s, name);
    lum_update_ifhandle(name, ifhandle_of(slot, port, s));
  }
}

// Only the database: no thread polls, no channel is open, no callback is there.
class database_walks : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(lum_platform_data_init(0, 0), 0u);
    before = lum::node_keeper_counts();
  }
  // Leaving a section frees what it has held back.
  static lum::keeper_counts counts_at_rest() {
    for (int i = 0; i < 2; ++i) lum::ports_reader();
    return lum::node_keeper_counts();
  }
  lum::keeper_counts before{};
};

// What one walk has met.
struct walk_record {
  std::vector<uint32_t> rsips;
  bool consistent = true;
};

int32_t note_node(void *node, void *context) {
  const auto &port = *static_cast<const lum_port_node_info *>(node);
  auto &record = *static_cast<walk_record *>(context);
  record.rsips.push_back(port.rsip);
  record.consistent = record.consistent && lum::rsip_of(port.data) == port.rsip &&
                      port.data.sub_port[0].iftype == LUM_IFTYPE_OTS;
  return 0;
}

class busy_database : public database_walks {
 protected:
  void SetUp() override {
    database_walks::SetUp();
    for (uint32_t slot = first_slot; slot < first_slot + slots; ++slot) {
      for (uint32_t port = 0; port < ports_per_slot; port += 2) {
        add_port(slot, port);
        name_controllers(slot, port);
        staying.insert(rsip_of(slot, port));
      }
    }
  }
  void fail(const std::string &what) {
    if (failures.fetch_add(1) < 10) ADD_FAILURE() << what;
  }

  void walk(worker &self);
  void query(worker &self);
  void read_hardware(worker &self);
  void come_and_go(worker &self, uint32_t slot);

  std::set<uint32_t> staying;
  std::atomic<uint32_t> failures{0};
  std::atomic<uint64_t> walks{0};
  std::atomic<uint64_t> removals{0};
};

void busy_database::walk(worker &self) {
  self.doing("lum_ports_db_walk_via_rsip");
  walk_record record;
  lum_ports_db_walk_via_rsip(note_node, &record);
  ++walks;
  if (!record.consistent) fail("a walk met a node with another port's data");
  std::set<uint32_t> met;
  uint32_t last = 0;
  for (const uint32_t rsip : record.rsips) {
    if (rsip <= last) fail("a walk went back to " + std::to_string(rsip));
    last = rsip;
    met.insert(rsip);
  }
  for (const uint32_t rsip : staying) {
    if (!met.contains(rsip)) fail("a walk missed the port " + std::to_string(rsip));
  }
}

void busy_database::query(worker &self) {
  self.doing("lum_safely_ queries");
  const uint32_t slot = first_slot + below(self.random, slots);
  const uint32_t port = below(self.random, ports_per_slot);
  const bool stays = port % 2 == 0;
  const uint32_t sub_port = below(self.random, LUM_SUB_PORTS);
  uint32_t ifhandle = 0, rsip = 0;
  lum_device_id_td device = {};
  const cerrno handle_rc = lum_safely_get_ifhandle(handle_of(slot, port), sub_port, &ifhandle);
  const cerrno rsip_rc = lum_safely_get_rsip(handle_of(slot, port), &rsip);
  const cerrno device_rc = lum_safely_get_devinfo(handle_of(slot, port), sub_port, &device);
  if (rsip_rc == 0 && rsip != rsip_of(slot, port)) fail("a handle led to another port");
  if (handle_rc == 0 && ifhandle != 0 && ifhandle != ifhandle_of(slot, port, sub_port)) {
    fail("a port has another's interface handle");
  }
  if (!stays) return;
  if (handle_rc != 0 || rsip_rc != 0 || device_rc != 0) fail("a port that stays was not found");
  if (device.port_handle != handle_of(slot, port)) fail("a device id is not its port's");
}

void busy_database::read_hardware(worker &self) {
  self.doing("lum_get_hw_info");
  const uint32_t slot = first_slot + below(self.random, slots);
  const uint32_t port = 2 * below(self.random, ports_per_slot / 2);
  const uint32_t ifhandles[] = {ifhandle_of(slot, port, 0), ifhandle_of(slot, port, 1)};
  std::vector<lum_hw_info_out> records(2);
  if (lum_get_hw_info(2, ifhandles, records.data()) != 0) fail("a staying port has no hardware");
  uint32_t rsip = 0;
  if (lum_ports_db_get_rsip_from_ifh(ifhandles[1], &rsip) != 0 || rsip != rsip_of(slot, port)) {
    fail("an interface handle led to another port");
  }
}

// Every other creation is made twice: the second one drops the port from the database.
void busy_database::come_and_go(worker &self, uint32_t slot) {
  const uint32_t port = 2 * below(self.random, ports_per_slot / 2) + 1;
  self.doing("adding a port");
  add_port(slot, port);
  name_controllers(slot, port);
  if (below(self.random, 2) == 0) {
    self.doing("adding a port again");
    add_port(slot, port);
    if (lum_ports_db_remove_entry(rsip_of(slot, port)) != 2) fail("a dropped port was there");
  } else {
    self.doing("removing a port");
    if (lum_ports_db_remove_entry(rsip_of(slot, port)) != 0) fail("an added port was not there");
  }
  ++removals;
}

struct held_walk {
  uint32_t at;
  std::promise<void> arrived;
  std::future<void> leave;
  std::vector<uint32_t> rsips;
};

int32_t stop_at_node(void *node, void *context) {
  const auto &port = *static_cast<const lum_port_node_info *>(node);
  auto &walk = *static_cast<held_walk *>(context);
  if (port.rsip == walk.at) {
    walk.arrived.set_value();
    walk.leave.wait();
  }
  walk.rsips.push_back(port.rsip);
  return 0;
}

}  // namespace

TEST_F(database_walks, a_removed_node_is_kept_for_the_walk_that_stands_on_it_and_then_freed) {
  for (uint32_t port = 0; port < 4; ++port) add_port(first_slot, port);
  std::promise<void> go_on;
  held_walk walk{rsip_of(first_slot, 1), {}, go_on.get_future(), {}};
  std::future<void> arrived = walk.arrived.get_future();
  std::thread walker([&] { lum_ports_db_walk_via_rsip(stop_at_node, &walk); });
  arrived.wait();
  EXPECT_EQ(lum_ports_db_remove_entry(rsip_of(first_slot, 1)), 0u);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip_of(first_slot, 2)), 0u);
  EXPECT_EQ(lum_ports_db_find_entry(rsip_of(first_slot, 1)), nullptr);
  EXPECT_EQ(counts_at_rest().retired, before.retired + 2);
  EXPECT_EQ(counts_at_rest().freed, before.freed);
  go_on.set_value();
  walker.join();
  // The walk goes on with the successor that is still there.
  EXPECT_EQ(walk.rsips, (std::vector<uint32_t>{rsip_of(first_slot, 0), rsip_of(first_slot, 1),
                                               rsip_of(first_slot, 3)}));
  EXPECT_EQ(counts_at_rest().freed, before.freed + 2);
}

TEST_F(busy_database, a_port_that_stays_is_never_missed_and_every_removed_node_is_freed) {
  const auto seconds = std::chrono::seconds(stress::setting("LUM_STRESS_SECONDS", 5));
  stress::crew crew(stress::setting("LUM_STRESS_SEED", 1));
  const stress::watchdog dog(seconds + 120s, [&] { return crew.report(); });
  for (int i = 1; i <= 2; ++i) crew.add("walker", [this](worker &self) { walk(self); });
  crew.add("query", [this](worker &self) { query(self); });
  crew.add("hardware", [this](worker &self) { read_hardware(self); });
  for (uint32_t slot = first_slot; slot < first_slot + slots; ++slot) {
    crew.add("ports of slot " + std::to_string(slot),
             [this, slot](worker &self) { come_and_go(self, slot); });
  }
  uint64_t most_kept = 0;
  uint64_t freed_while_busy = 0;
  for (const auto end = std::chrono::steady_clock::now() + seconds;
       std::chrono::steady_clock::now() < end;) {
    std::this_thread::sleep_for(10ms);
    const lum::keeper_counts now = lum::node_keeper_counts();
    freed_while_busy = now.freed - before.freed;
    if (now.retired > now.freed) most_kept = std::max(most_kept, now.retired - now.freed);
  }
  crew.dismiss();
  const lum::keeper_counts after = counts_at_rest();
  std::printf("%lu walks, %lu nodes removed, %lu of them freed under way, at most %lu kept\n",
              static_cast<unsigned long>(walks), static_cast<unsigned long>(removals),
              static_cast<unsigned long>(freed_while_busy), static_cast<unsigned long>(most_kept));
  EXPECT_EQ(failures, 0u);
  EXPECT_GT(walks, 0u);
  EXPECT_GT(freed_while_busy, 0u);
  EXPECT_EQ(after.retired - before.retired, removals);
  EXPECT_EQ(after.freed - before.freed, removals);

  walk_record left;
  lum_ports_db_walk_via_rsip(note_node, &left);
  EXPECT_EQ(std::set<uint32_t>(left.rsips.begin(), left.rsips.end()), staying);
}

// Of two updates of one new port the first enters its handle, and the second drops the port.
TEST_F(busy_database, two_handles_for_one_port_leave_the_index_by_handle_in_order) {
  constexpr uint32_t fresh_slot = first_slot + slots;
  const uint32_t port = 0;
  const uint32_t fresh = rsip_of(fresh_slot, port);
  const auto seconds = std::chrono::seconds(stress::setting("LUM_STRESS_SECONDS", 5));
  stress::crew crew(stress::setting("LUM_STRESS_SEED", 1));
  const stress::watchdog dog(seconds + 120s, [&] { return crew.report(); });
  crew.add("other ports", [this](worker &self) { come_and_go(self, first_slot); });

  std::barrier meet(2);
  std::atomic<bool> over = false;
  uint32_t round = 0;
  std::thread other([&] {
    for (meet.arrive_and_wait(); !over; meet.arrive_and_wait()) {
      lum_ports_db_update_entry(fresh, 0xFFFFFFFF - round);
      meet.arrive_and_wait();
    }
  });
  for (const auto end = std::chrono::steady_clock::now() + seconds;
       std::chrono::steady_clock::now() < end; ++round) {
    lum_platform_ctx_init(0, fresh_slot, 0, 1, &port);
    meet.arrive_and_wait();
    lum_ports_db_update_entry(fresh, 1 + round % 0xFF);
    meet.arrive_and_wait();
    if (lum_ports_db_find_entry(fresh) != nullptr) fail("a port with two handles has stayed");
  }
  over = true;
  meet.arrive_and_wait();
  other.join();
  crew.dismiss();

  EXPECT_EQ(failures, 0u);
  EXPECT_GT(round, 0u);
  std::vector<uint32_t> handles;
  for (void *node = wavl_get_first(&lum_platform.tree, 1); node != nullptr;
       node = wavl_get_next(&lum_platform.tree, node, 1)) {
    handles.push_back(static_cast<lum_port_node_info *>(node)->port_handle);
  }
  EXPECT_EQ(handles.size(), staying.size());
  EXPECT_EQ(std::adjacent_find(handles.begin(), handles.end(), std::greater_equal<>()),
            handles.end());
  for (const uint32_t rsip : staying) {
    const uint32_t handle = handle_of(rsip >> 16, rsip & 0xFF);
    const lum_port_node_info *node = lum_get_port_node_from_port_handle(handle);
    EXPECT_TRUE(node != nullptr && node->rsip == rsip) << "handle " << handle;
  }
}
