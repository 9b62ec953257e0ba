// A driver process to be killed: crash_worker FOLDER SEED storm|report
//
// Starts the node, tells what configuration every port came back with, writes it into the modules
// again and, for a storm, changes it from several threads until it is killed.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

#include "crash_records.h"
#include "crew.h"
#include "seams.h"

namespace {

using stress::below;
using stress::crash_event;
using stress::crash_record;
using stress::port_place;
using stress::worker;

constexpr uint32_t storm_threads = 3;
constexpr uint32_t largest_value =
    3000;  // ten times as much, and 100, still fit the module's words

// A parent that is gone ends the driver.
void tell(const crash_record &record) {
  if (write(stress::record_fd, &record, sizeof record) != sizeof record) _exit(4);
}

void tell_recovered(const stress::node &node) {
  for (const port_place &port : node.ports()) {
    const lum_port_data *data = stress::data_of(port);
    if (data == nullptr) _exit(5);
    for (uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
      tell({crash_event::recovered, port.port, s, 0, 0, data->port_cfg[s]});
    }
  }
}

void put(lum_hw_info_in &record, std::size_t position, uint32_t value) {
  std::memcpy(reinterpret_cast<char *>(&record) + position, &value, sizeof value);
}

// Every field has a value; the library is to take those that the bits name.
lum_hw_info_in input_of(const lum_port_cfg &cfg) {
  lum_hw_info_in record = {};
  put(record, LUM_HW_IN_THRESHOLD, cfg.threshold);
  put(record, LUM_HW_IN_P2_SETTING, cfg.p2_setting);
  put(record, LUM_HW_IN_MODE, cfg.mode);
  put(record, LUM_HW_IN_SETTING_A, cfg.setting_a);
  put(record, LUM_HW_IN_SETTING_B, cfg.setting_b);
  put(record, LUM_HW_IN_ENABLE_FLAG, cfg.enable_flag);
  put(record, LUM_HW_IN_SUB1_FLAG, cfg.sub1_flag);
  return record;
}

void change_something(const stress::node &node, worker &self, uint32_t thread) {
  constexpr uint64_t bits[] = {LUM_CHANGE_THRESHOLD, LUM_CHANGE_P2_SETTING, LUM_CHANGE_MODE,
                               LUM_CHANGE_SETTINGS};
  // Each sub-port has one thread, and the sub-ports of a port have different ones.
  const auto pairs = static_cast<uint32_t>(node.ports().size()) * LUM_SUB_PORTS;
  const uint32_t pair =
      below(self.random, (pairs - thread + storm_threads - 1) / storm_threads) * storm_threads +
      thread;
  const port_place &port = node.ports()[pair / LUM_SUB_PORTS];
  crash_record record = {crash_event::asked, port.port, pair % LUM_SUB_PORTS, 0, 0, {}};
  for (const uint64_t bit : bits) {
    if (below(self.random, 2) == 0) record.changed_bits |= bit;
  }
  if (record.changed_bits == 0) record.changed_bits = bits[below(self.random, 4)];
  for (uint32_t *field :
       {&record.cfg.threshold, &record.cfg.p2_setting, &record.cfg.mode, &record.cfg.setting_a,
        &record.cfg.setting_b, &record.cfg.enable_flag, &record.cfg.sub1_flag}) {
    *field = 1 + below(self.random, largest_value);
  }
  record.cfg.mode = 1 + below(self.random, 3);
  tell(record);
  const lum_hw_info_in input = input_of(record.cfg);
  const uint32_t ifhandle = stress::ifhandle_of(port, record.sub_port);
  record.event = crash_event::answered;
  record.result = lum_set_hw_info(1, &ifhandle, &input, &record.changed_bits);
  tell(record);
}

bool told_to_go() {
  char go = 0;
  return read(stress::go_fd, &go, 1) == 1;
}

int run(const std::filesystem::path &folder, uint64_t seed, bool storm) {
  stress::node node(stress::crash_shape(folder));
  stress::poll_every(std::chrono::milliseconds(5));
  node.create_all();
  const auto controllers = static_cast<uint32_t>(node.ports().size()) * LUM_SUB_PORTS;
  if (!node.platform().wait_created(controllers, std::chrono::seconds(30))) return 5;
  tell_recovered(node);
  for (const port_place &port : node.ports()) lum_update_port(0, port.slot, 0, port.port, 1);
  tell({crash_event::ready, 0, 0, 0, 0, {}});
  if (storm && told_to_go()) {
    stress::crew crew(seed);
    for (uint32_t i = 0; i < storm_threads; ++i) {
      crew.add("storm", [&node, i](worker &self) { change_something(node, self, i); });
    }
    for (;;) pause();
  }
  stress::poll_on_demand();
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fputs("usage: crash_worker FOLDER SEED storm|report\n", stderr);
    return 2;
  }
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is to fail like a full disk
  try {
    return run(argv[1], std::strtoull(argv[2], nullptr, 10), std::string(argv[3]) == "storm");
  } catch (const std::exception &exception) {
    std::fprintf(stderr, "crash_worker: %s\n", exception.what());
    return 3;
  }
}
