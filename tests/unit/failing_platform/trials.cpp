#include "trials.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

#include "calls.h"
#include "controllers.h"
#include "lum_api/lum_api.h"
#include "provisioning_step.h"
#include "stated_ends.h"

namespace failing_platform {

using namespace support;

namespace {

constexpr unsigned stuck_seconds = 60;
constexpr unsigned most_calls = 100000;

#ifdef LUM_SANITIZED
constexpr unsigned stride = 16;  // a process is dear then
#else
constexpr unsigned stride = 1;
#endif

unsigned first_of_today() {
  constexpr std::time_t seconds_a_day = 24 * 60 * 60;
  const char *start = std::getenv("LUM_ATTACK_START");
  const auto day = static_cast<unsigned long>(std::time(nullptr) / seconds_a_day);
  return 1 + static_cast<unsigned>((start == nullptr ? day : std::strtoul(start, nullptr, 10)) %
                                   stride);
}

// What it says comes with how it ended.
int in_process(const std::function<ending()> &what, std::string &said) {
  const bool failed_before = testing::Test::HasFailure();
  int ends[2];
  std::fflush(stdout);
  if (pipe(ends) != 0) return -1;
  const pid_t child = fork();
  if (child == 0) {
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    alarm(stuck_seconds);
    const ending how = what();
    _exit(how == went_well && !failed_before && testing::Test::HasFailure() ? expectation_broken
                                                                            : how);
  }
  close(ends[1]);
  char bytes[512];
  said.clear();
  for (ssize_t got = read(ends[0], bytes, sizeof bytes); got > 0;
       got = read(ends[0], bytes, sizeof bytes)) {
    said.append(bytes, static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool is_free(pthread_mutex_t &mutex) {
  if (pthread_mutex_trylock(&mutex) != 0) return false;
  pthread_mutex_unlock(&mutex);
  return true;
}

lum_port_node_info *port_node(uint32_t number) {
  return lum_get_port_node_from_rsip(rsip_at(slot, 0, number));
}

bool is_there(uint32_t number) {
  const lum_port_node_info *node = port_node(number);
  if (node == nullptr || node->data.is_dom_enabled == 0) return false;
  if (!std::all_of(std::begin(node->data.sub_port), std::end(node->data.sub_port),
                   [](const lum_sub_port_intf &interface) {
                     return interface.created == 1 && interface.ifhandle != 0;
                   })) {
    return false;
  }
  uint32_t rsip = 0;
  return lum_safely_get_rsip(node->port_handle, &rsip) == 0 && rsip == node->rsip &&
         lum_provision_port_cfg_data(0, &data_at(rsip), LUM_CHANGE_THRESHOLD) == 0;
}

void delete_and_create() {
  lum_replay_controllers();
  im.answer_all();
  lum_delete_ports(0, slot, 0, 2, two_ports);
  im.answer_all();
  const lum_slot_props props = {1, 4};
  lum_plat_init(0, slot, 0, &props);
  for (const uint32_t number : two_ports) {
    const auto one = props_of({rsip_at(slot, 0, number)});
    lum_create_ports(1, one.data());
  }
  im.answer_all();
}

bool are_polled() {
  constexpr uint32_t temperature_at = 14;
  constexpr uint16_t temperature = 0x2A55;
  if (lum_get_ctx()->dom_thread_started == 0) return true;
  for (const uint32_t number : two_ports) {
    modules.at(slot, 0, number).put_be16(0, temperature_at, temperature);
  }
  polling.run_cycle();
  return std::all_of(std::begin(two_ports), std::end(two_ports), [](uint32_t number) {
    return port_node(number)->data.module_temperature == temperature;
  });
}

// A pulse that is lost ends all provisioning, as its service's header says.
bool are_provisioned() {
  const std::vector<std::string> &failed_calls = script.failed_of_any();
  if (std::find(failed_calls.begin(), failed_calls.end(), "event_send_async") != failed_calls.end())
    return true;
  unsigned provisioned = 0;
  provisioning_step = [&](lum_port_data *, uint32_t) {
    ++provisioned;
    return cerrno{0};
  };
  for (const uint32_t number : two_ports) {
    lum_mark_provisioning_needed(&port_node(number)->data);
  }
  lum_wakeup_provisioning_thread();
  events.run_pulses();
  return provisioned == std::size(two_ports);
}

}  // namespace

const failing failings[4] = {{"once with 5", 5, script_book::how_long::once},
                             {"once with 16", 16, script_book::how_long::once},
                             {"from then on with 5", 5, script_book::how_long::from_then_on},
                             {"from then on with 16", 16, script_book::how_long::from_then_on}};

void try_each(const std::string &name, const trial &once, tally &all) {
  const char *only = std::getenv("LUM_FAILING_CALL");
  if (only != nullptr && name != only) return;
  ++all.calls;
  for (unsigned nth = first_of_today(); nth < most_calls; nth += stride) {
    std::string said;
    const int ended = in_process([&] { return once(nth); }, said);
    if (ended == not_met) return;
    ++all.tried;
    const bool is_fatal = ended == -SIGABRT && is_stated_end(said);
    all.fatal += is_fatal ? 1 : 0;
    if (ended != went_well && !is_fatal) {
      ADD_FAILURE() << name << ", call " << nth << ": " << ended << " " << said;
      return;
    }
    ++all.survived;
    if (only != nullptr) std::printf("%s, call %u: %s", name.c_str(), nth, said.c_str());
  }
}

void expect_all_survived(const failing &how, const tally &all, unsigned fewest) {
  std::printf(
      "%u calls of the library, the platform failing %s, every %u. from the %u.: %u tried, %u "
      "survived, of which %u ended as stated\n",
      all.calls, how.name, stride, first_of_today(), all.tried, all.survived, all.fatal);
  EXPECT_EQ(all.survived, all.tried);
  if (std::getenv("LUM_FAILING_CALL") == nullptr) {
    EXPECT_GT(all.tried, fewest / stride);
  }
}

bool met_while(const std::function<void()> &operate, const failing &how, unsigned nth) {
  script.fail_any(nth, how.code, how.lasts);
  operate();
  im.answer_all();
  events.run_pulses();
  const bool met = script.calls_of_any() >= nth;
  script.forget();
  if (met) std::fprintf(stderr, "%s failed\n", script.failed_of_any().front().c_str());
  return met;
}

// Ports whose deletion or creation was not to be come when they are asked for again.
bool comes_back() {
  constexpr unsigned attempts = 3;
  constexpr uint8_t controllers = 8;
  bool are_there = false;
  for (unsigned attempt = 0; attempt < attempts && !are_there; ++attempt) {
    set_controller_count(controllers);
    delete_and_create();
    are_there = std::all_of(std::begin(two_ports), std::end(two_ports), is_there);
  }
  return are_there && are_polled() && are_provisioned();
}

bool all_locks_are_free() {
  for (const uint32_t number : two_ports) {
    lum_port_node_info *node = port_node(number);
    if (node == nullptr || node->data.mutex_kept_by != 0) continue;
    if (!is_free(node->data.port_mutex)) return false;
  }
  return is_free(lum_platform.mutex) && is_free(prov_lock) && is_free(lum::serial_mutex);
}

void begin_polling_anew() {
  polling.start_cycle();
  std::thread([] { lum::dom_thread(nullptr); }).detach();
  polling.wait_asleep();
}

}  // namespace failing_platform
