#include "one_life.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "chkpt.h"
#include "lum.h"
#include "lum_linux/checkpoints.h"
#include "lum_linux/platform.h"
#include "stress/seams.h"
#include "test_folder.h"

namespace attacks {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t slot = 1;
constexpr auto bound = 60s;
constexpr int attempts = 10;  // at what the attack has left behind

uint32_t rsip_of(uint32_t port) { return slot << 16 | port; }

uint32_t word(const uint32_t &field) { return __atomic_load_n(&field, __ATOMIC_RELAXED); }

class life {
 public:
  life(const lum_linux::node_description &node, ledger &left) : node_(node), left_(left) {}

  bool start(const attack &planned);
  void use();
  void recover();
  void expect_acknowledged();
  void stop();
  bool is_well() const { return left_.wrong[0] == '\0'; }

 private:
  void wrong(const std::string &what);
  void create(const std::vector<uint32_t> &numbers);
  void delete_port(uint32_t number);
  void set(uint32_t port, uint32_t sub_port, uint32_t value);
  void settle();
  void poll();
  const lum_port_data *port(uint32_t number) const;
  uint32_t ifhandle(uint32_t number, uint32_t sub_port) const;
  bool has_handles(uint32_t number) const;
  static bool is_told_as(uint32_t number, lum_linux::record_trouble trouble);

  const lum_linux::node_description &node_;
  ledger &left_;
  std::unique_ptr<lum_linux::platform> platform_;
};

void life::wrong(const std::string &what) {
  if (is_well()) std::snprintf(left_.wrong, sizeof left_.wrong, "%s", what.c_str());
}

// False when the start was refused, as it may be while it is attacked.
bool life::start(const attack &planned) {
  // Where there is none for good, the start is refused or ends as stated, or the reader of modules'
  // descriptions ends it: what comes behind it is tried.
  const bool is_for_good = planned.what == target::memory && planned.from_then_on;
  if (!is_for_good) begin(planned);
  try {
    const struck now;
    std::string error;
    platform_ = lum_linux::platform::start(node_, error);
  } catch (const std::bad_alloc &) {
    return false;
  }
  if (!platform_) return false;
  lum_infra_params params = {};
  params.evm = platform_->evm();
  params.platform_cbs = &platform_->callbacks();
  params.pm_alarm_test = 1;
  const bool has_started = [&] {
    const struck now;
    return lum_lib_init() == 0 && lum_infra_init(&params) == 0;
  }();
  if (is_for_good) begin(planned);
  return has_started;
}

void life::create(const std::vector<uint32_t> &numbers) {
  std::vector<lum_port_props> props;
  for (const uint32_t number : numbers) {
    lum_port_props each = {};
    each.rsip = rsip_of(number);
    each.port_index = number;
    each.port_handle = 10 + number;
    props.push_back(each);
  }
  {
    const struck now;
    lum_create_ports(static_cast<uint32_t>(props.size()), props.data());
  }
  settle();
}

// Its settings may go with it.
void life::delete_port(uint32_t number) {
  for (uint32_t &setting : left_.acknowledged[number]) setting = 0;
  {
    const struck now;
    lum_delete_ports(0, slot, 0, 1, &number);
  }
  settle();
  if (port(number) != nullptr || is_told_as(number, lum_linux::record_trouble::undeleted)) return;
  uint64_t id = 0;  // liblum's trace says where it could not ask for the record
  if (chkpt_mapkey(lum_get_ctx()->chkpt_table, rsip_of(number), &id, 0) != ENOENT) return;
  std::copy_n(left_.asked[number], sub_ports, left_.deleted[number]);
}

void life::set(uint32_t number, uint32_t sub_port, uint32_t value) {
  lum_hw_info_in record = {};
  auto *bytes = reinterpret_cast<uint8_t *>(record.words);
  std::memcpy(bytes + LUM_HW_IN_P2_SETTING, &value, sizeof value);
  const uint64_t changed = LUM_CHANGE_P2_SETTING;
  const uint32_t handle = ifhandle(number, sub_port);
  if (!has_handles(number)) return;
  left_.asked[number][sub_port] = value;
  cerrno rc = 0;
  {
    const struck now;
    rc = lum_set_hw_info_by_ifh(1, &handle, &record, &changed);
  }
  // Of a port that came up without its record the first change brings back what is saved for it.
  const lum_port_data *data = port(number);
  const bool is_in_force = data != nullptr && word(data->port_cfg[sub_port].p2_setting) == value;
  if (rc == 0 && is_in_force) left_.acknowledged[number][sub_port] = value;
}

void life::settle() {
  if (!platform_->im().wait_idle(bound)) wrong("the interface manager is stuck");
}

void life::poll() {
  if (!stress::run_polling_cycle(bound)) wrong("the polling thread is stuck");
}

const lum_port_data *life::port(uint32_t number) const {
  const lum_port_node_info *node = lum_get_port_node_from_rsip(rsip_of(number));
  return node == nullptr ? nullptr : &node->data;
}

uint32_t life::ifhandle(uint32_t number, uint32_t sub_port) const {
  const lum_port_data *data = port(number);
  return data == nullptr ? 0 : word(data->sub_port[sub_port].ifhandle);
}

bool life::has_handles(uint32_t number) const {
  const lum_port_data *data = port(number);
  if (data == nullptr) return false;
  for (const lum_sub_port_intf &each : data->sub_port) {
    if (word(each.ifhandle) == 0 || __atomic_load_n(&each.created, __ATOMIC_RELAXED) != 1) {
      return false;
    }
  }
  return true;
}

void life::stop() {
  const struck now;
  platform_.reset();
}

void life::use() {
  const lum_slot_props props = {1, ports};
  {
    const struck now;
    lum_plat_init(0, slot, 0, &props);
  }
  create({0, 1});
  poll();
  for (uint32_t s = 0; s < sub_ports; ++s) {
    set(0, s, left_.asked[0][s] + 1);
    set(1, s, left_.asked[1][s] + 1);
  }
  for (uint32_t s = 0; s < sub_ports; ++s) {
    static lum_hw_info_out record;
    const uint32_t handle = ifhandle(0, s);
    const struck now;
    lum_ots_test_alarms_pm(nullptr, "test#Ots0_1_0_0_0#1#0#1");
    if (handle != 0) lum_update_pm_ptah_data(handle);
    lum_get_hw_info_by_ifh(1, &handle, &record);
  }
  {
    const struck now;
    lum_replay_controllers();
    lum_wakeup_provisioning_thread();
    lum_update_vendor_info(rsip_of(0), 1);
    lum_update_port(0, slot, 0, 0, 1);
  }
  settle();
  poll();
  set(0, 0, left_.asked[0][0] + 1);
  lum_linux::checkpoints_tend();
  set(0, 1, left_.asked[0][1] + 1);
  if (has_handles(1)) delete_port(1);
}

// Whatever has failed works when it is asked for again; a store that could not be opened is opened
// by its upkeep.
void life::recover() {
  lum_linux::checkpoints_tend();
  const lum_slot_props props = {1, ports};
  for (int i = 0; i < attempts && port(1) != nullptr && has_handles(1); ++i) delete_port(1);
  if (lum_plat_num_port_info(slot, 0) == 0) lum_plat_init(0, slot, 0, &props);
  for (int i = 0; i < attempts && !(has_handles(0) && has_handles(1)); ++i) {
    for (uint32_t number = 0; number < ports; ++number) {
      if (port(number) == nullptr) create({number});
    }
    if (!has_handles(0) || !has_handles(1)) lum_replay_controllers();
    settle();
  }
  for (uint32_t number = 0; number < ports; ++number) {
    if (!has_handles(number)) return wrong("a port does not come back");
    lum_update_vendor_info(rsip_of(number), 1);
  }
  poll();
  poll();
  for (uint32_t number = 0; number < ports; ++number) {
    if (port(number)->dom[0].readings[0] == 0) wrong("a port is not polled any more");
    for (uint32_t s = 0; s < sub_ports; ++s) {
      set(number, s, left_.asked[number][s] + 1);
      set(number, s, left_.asked[number][s] + 1);
      // One that came up without the store is not saved over until the next start.
      if (left_.acknowledged[number][s] != left_.asked[number][s] &&
          !is_told_as(number, lum_linux::record_trouble::unread)) {
        wrong("a setting is not taken any more: " + lum_linux::checkpoints_status().last_failure);
      }
    }
  }
}

bool life::is_told_as(uint32_t number, lum_linux::record_trouble trouble) {
  for (const lum_linux::troubled_record &each : lum_linux::checkpoints_status().troubled) {
    if (each.key == rsip_of(number) && each.trouble == trouble) return true;
  }
  return false;
}

// The setting that is kept is the one acknowledged last, or one asked for after it.
void life::expect_acknowledged() {
  const lum_linux::checkpoint_status status = lum_linux::checkpoints_status();
  if (!status.set_aside.empty()) wrong("a store was set aside: " + status.set_aside_reason);
  const lum_slot_props props = {1, ports};
  lum_plat_init(0, slot, 0, &props);
  create({0, 1});
  for (uint32_t number = 0; number < ports; ++number) {
    const lum_port_data *data = port(number);
    if (data == nullptr) return wrong("a port cannot be created");
    for (uint32_t s = 0; s < sub_ports; ++s) {
      const uint32_t kept = data->port_cfg[s].p2_setting;
      if (kept < left_.acknowledged[number][s] || kept > left_.asked[number][s]) {
        wrong("port " + std::to_string(number) + "." + std::to_string(s) + " has " +
              std::to_string(kept) + ", not " + std::to_string(left_.acknowledged[number][s]));
      }
      if (kept != 0 && kept <= left_.deleted[number][s]) {
        wrong("port " + std::to_string(number) + "." + std::to_string(s) + " has " +
              std::to_string(kept) + ", which was deleted");
      }
    }
  }
}

}  // namespace

lum_linux::node_description small_node_in(const std::filesystem::path &folder) {
  lum_linux::node_description node;
  node.name = "attacked";
  node.state_directory = folder / "state";
  node.trace_directory = folder / "traces";
  node.led_directory = folder / "leds";
  node.api_socket = folder / "api.sock";
  lum_linux::instance_description instance;
  instance.capacity = ports;
  for (uint32_t number = 0; number < ports; ++number) {
    const std::filesystem::path file = folder / (std::to_string(number) + ".toml");
    write_file(file,
               "vendor = \"II-VI\"\nfirmware = [0, 6]\nmemory_map = \"new\"\n"
               "temperature = 41.25\nsupply = 3.3\n"
               "[sub_port_0]\npowers_dbm = [-2.85, 2.1, -19.4]\n"
               "[sub_port_1]\npowers_dbm = [-5.5, 15.0, -20.2]\n");
    lum_linux::port_description port;
    port.number = number;
    port.rsip = rsip_of(number);
    port.handle = 10 + number;
    port.name = "p" + std::to_string(number);
    port.module.backend = lum_linux::module_backend::simulated;
    port.module.file = file;
    instance.ports.push_back(port);
  }
  node.slots.push_back({slot, {instance}});
  return node;
}

void live(const lum_linux::node_description &node, const attack &planned, ledger &left) {
  spare_this_thread();
  stress::poll_on_demand();  // what the tests' own seams keep is made before the attack
  life one(node, left);
  if (!one.start(planned)) {
    left.calls = end();
    left.refused = true;
    return;
  }
  one.use();
  if (planned.how == ending::is_killed) {
    left.calls = end();
    _exit(0);
  }
  if (planned.how == ending::recovers) {
    left.calls = end();
    one.recover();
  }
  one.stop();
  if (planned.how == ending::stops) left.calls = end();
  left.blocks = blocks_outstanding();
}

void live_on(const lum_linux::node_description &node, ledger &left) {
  spare_this_thread();
  life next(node, left);
  if (!next.start({})) {
    std::snprintf(left.wrong, sizeof left.wrong, "the next start fails");
    return;
  }
  next.expect_acknowledged();
  next.stop();
}

}  // namespace attacks
