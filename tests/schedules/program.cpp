#include "program.h"

#include <cstdio>
#include <cstring>

#include "interface_manager.h"
#include "library.h"
#include "lum_api/lum_api.h"
#include "lum_server/lum_server.h"
#include "node_model.h"
#include "scheduler.h"

namespace schedules {
namespace {

constexpr uint32_t ports_of_slot_1 = 2;
constexpr uint32_t ports_of_slot_2 = 1;

class program {
 public:
  explicit program(uint64_t seed) : scheduler_(seed), model_(scheduler_) {}

  outcome run(bool tell);

 private:
  void fill_modules();
  void employ();
  void add_client(const std::string &name, std::function<void()> work);
  void add_life(uint32_t slot, uint32_t ports);
  bool sometimes(uint32_t one_in) { return scheduler_.below(one_in) == 0; }
  place any_place() { return places_[scheduler_.below(static_cast<uint32_t>(places_.size()))]; }

  void live(uint32_t slot, uint32_t ports);
  void create(const std::vector<place> &which);
  void delete_some(const std::vector<place> &which);
  void set();
  void answer();
  void provision();
  void move_module(place where);
  void query();
  bool all_answered() const;
  bool clients_are_done() const { return clients_ == 0; }
  uint32_t ifhandle(place where, uint32_t sub_port);

  scheduler scheduler_;
  node_model model_;
  std::vector<place> places_;
  unsigned clients_ = 0;  // still at work
  unsigned lives_ = 0;    // of them, that create and delete
  unsigned pulses_ = 0;   // sent and not handled
  bool answering_ = false;
};

outcome program::run(bool tell) {
  scheduler_.at_each_call = [this, tell](const std::string &thread, const std::string &text) {
    if (tell) std::fprintf(stderr, "%-10s %s\n", thread.c_str(), text.c_str());
    if (text.starts_with("event_send_async(")) ++pulses_;
    model_.look_at_call(thread, text);
  };
  fill_modules();
  employ();
  if (scheduler_.run()) {
    model_.look_at_rest(places_);
  } else {
    model_.found("nobody can go on: " + scheduler_.who_waits());
  }
  return {scheduler_.story(), scheduler_.steps(), model_.findings()};
}

void program::fill_modules() {
  for (uint32_t port = 0; port < ports_of_slot_1; ++port) places_.push_back({1, port});
  for (uint32_t port = 0; port < ports_of_slot_2; ++port) places_.push_back({2, port});
  for (const place &where : places_) {
    support::module_memory &module = support::modules.at(where.slot, 0, where.port);
    for (uint32_t offset = 0; offset < 128; ++offset) module.put(0, offset, {0x11});
    for (uint32_t flags = 9; flags < 14; ++flags) module.put(0, flags, {0});
  }
}

void program::employ() {
  add_life(1, ports_of_slot_1);
  if (sometimes(2)) add_life(2, ports_of_slot_2);
  add_client("setter", [this] { set(); });
  if (sometimes(2)) add_client("setter 2", [this] { set(); });
  if (sometimes(3)) {
    add_client("updater", [this] {
      const place where = any_place();
      lum_update_port(0, where.slot, 0, where.port, scheduler_.below(2));
    });
  }
  if (sometimes(3)) add_client("replayer", [] { lum_replay_controllers(); });
  if (sometimes(4)) {
    const place where = any_place();
    model_.module_moves(where);
    add_client("cages", [this, where] { move_module(where); });
  }
  if (sometimes(3)) add_client("waker", [] { lum_wakeup_provisioning_thread(); });
  if (sometimes(3)) add_client("asker", [this] { query(); });
  scheduler_.add("answers", [this] { answer(); });
  scheduler_.add("events", [this] { provision(); });
  scheduler_.cycles_left = 1 + scheduler_.below(3);
  scheduler_.last_cycle_when = [this] { return clients_are_done() && all_answered(); };
  scheduler_.add("poller", [] { lum::dom_thread(nullptr); });
}

void program::add_client(const std::string &name, std::function<void()> work) {
  ++clients_;
  scheduler_.add(name, [this, work = std::move(work)] {
    work();
    --clients_;
  });
}

void program::add_life(uint32_t slot, uint32_t ports) {
  ++lives_;
  add_client("slot " + std::to_string(slot), [this, slot, ports] {
    live(slot, ports);
    --lives_;
  });
}

// Ports are created; some go, and most of these come back.
void program::live(uint32_t slot, uint32_t ports) {
  const lum_slot_props props = {1, ports};
  lum_plat_init(0, slot, 0, &props);
  std::vector<place> all;
  for (uint32_t port = 0; port < ports; ++port) all.push_back({slot, port});
  create(all);
  for (uint32_t rounds = scheduler_.below(3); rounds > 0; --rounds) {
    scheduler_.wait_until("the creation", [this] { return all_answered(); });
    std::vector<place> some;
    for (const place &where : all) {
      if (model_.is_created(where) && !sometimes(3)) some.push_back(where);
    }
    if (some.empty()) continue;
    delete_some(some);
    if (!sometimes(4)) create(some);
  }
}

void program::create(const std::vector<place> &which) {
  std::vector<lum_port_props> props;
  for (const place &where : which) {
    lum_port_props each = {};
    each.rsip = where.rsip();
    each.port_index = where.port;
    each.port_handle = support::handle_for(each.rsip);
    props.push_back(each);
    model_.creation_begun(where);
  }
  lum_create_ports(static_cast<uint32_t>(props.size()), props.data());
  scheduler_.wait_until("the handles", [this] { return all_answered(); });
  for (const place &where : which) model_.creation_ended(where);
}

// A port may come back as soon as it has left the database, while its completion is still busy with
// what it leaves behind.
void program::delete_some(const std::vector<place> &which) {
  std::vector<uint32_t> numbers;
  for (const place &where : which) {
    numbers.push_back(where.port);
    model_.deletion_begun(where);
  }
  lum_delete_ports(0, which[0].slot, 0, static_cast<uint32_t>(numbers.size()), numbers.data());
  scheduler_.wait_until("the deletion", [this, which] {
    for (const place &where : which) {
      if (!model_.has_left(where)) return false;
    }
    return true;
  });
}

void program::set() {
  for (uint32_t times = 1 + scheduler_.below(3); times > 0; --times) {
    const place where = any_place();
    const uint32_t sub_port = scheduler_.below(LUM_SUB_PORTS);
    scheduler_.wait_until("a port to set",
                          [this, where] { return model_.is_created(where) || lives_ == 0; });
    const uint32_t number = model_.setting_begun(where, sub_port);
    lum_hw_info_in record = {};
    auto *bytes = reinterpret_cast<uint8_t *>(record.words);
    std::memcpy(bytes + LUM_HW_IN_P2_SETTING, &number, sizeof number);
    std::memcpy(bytes + LUM_HW_IN_THRESHOLD, &number, sizeof number);
    const uint64_t changed = LUM_CHANGE_THRESHOLD | LUM_CHANGE_P2_SETTING;
    const uint32_t handle = ifhandle(where, sub_port);
    model_.setting_ended(number, lum_set_hw_info_by_ifh(1, &handle, &record, &changed));
  }
}

void program::answer() {
  std::size_t next = 0;
  for (;;) {
    scheduler_.wait_until("a batch", [this, next] {
      return next < support::im.batches.size() || clients_are_done();
    });
    if (next == support::im.batches.size()) return;
    answering_ = true;
    support::batch &which = support::im.batches[next++];
    support::im.answer_here(which);
    which.answered = true;
    answering_ = false;
  }
}

void program::provision() {
  for (;;) {
    scheduler_.wait_until("a pulse", [this] { return pulses_ != 0 || clients_are_done(); });
    if (pulses_ == 0) return;
    --pulses_;
    lum::provisioning_handler(support::client_manager, 0, 0);
  }
}

void program::move_module(place where) {
  for (uint32_t times = 1 + scheduler_.below(2); times > 0; --times) {
    lum_update_vendor_info(where.rsip(), 0);
    lum_update_vendor_info(where.rsip(), 1);
  }
}

void program::query() {
  const place where = any_place();
  lum_port_data *data = nullptr;
  uint32_t rsip = 0;
  const uint32_t handle = ifhandle(where, 0);
  lum_safely_get_rsip(support::handle_for(where.rsip()), &rsip);
  lum_ports_db_get_rsip_from_ifh(handle, &rsip);
  lum_update_pm_ptah_data(handle);
  static thread_local lum_hw_info_out record;
  lum_get_hw_info_by_ifh(1, &handle, &record);
  lum_get_s_dev_info(handle, &data, nullptr);
}

bool program::all_answered() const {
  for (const support::batch &each : support::im.batches) {
    if (!each.answered) return false;
  }
  return !answering_;
}

uint32_t program::ifhandle(place where, uint32_t sub_port) {
  return support::im.handle_of("Ots0_" + std::to_string(where.slot) + "_0_" +
                               std::to_string(where.port) + "_" + std::to_string(sub_port));
}

}  // namespace

// Threads may still stand in it: it is never destroyed.
outcome run_schedule(uint64_t seed, bool tell) { return (new program(seed))->run(tell); }

}  // namespace schedules
