#include "node/driver.h"

#include <cerrno>
#include <cstring>
#include <thread>

#include "lum.h"
#include "lum_linux/leds.h"
#include "lum_linux/modules.h"
#include "lum_linux/services.h"
#include "node/lifecycle.h"
#include "node/log.h"
#include "node/port_snapshot.h"
#include "wording/numbers.h"
#include "words/events.h"

namespace lumd {
namespace {

using lum_linux::periodic;

constexpr const char *cage_thread_name = "lumd-cages";
constexpr const char *feed_thread_name = "lumd-feed";
constexpr std::chrono::seconds cage_period(1);
constexpr unsigned rounds_of_a_led = 5;  // those that are well are read in every such round
constexpr const char *event_thread_name = "lumd-events";
constexpr const char *records_name = "records.db";
constexpr std::chrono::seconds feed_period(1);
constexpr std::chrono::seconds event_period(1);
// So long may the disk keep the driver from what earlier events were, and at its end from the last.
constexpr std::chrono::milliseconds reading_limit(2000);
constexpr std::chrono::milliseconds keeping_limit(300);

bool start_library(lum_linux::platform &platform, polling_clock &polling, bool alarm_tests,
                   bool &restarted, std::string &error) {
  if (const cerrno rc = lum_lib_init(); !CERR_IS_OK(rc)) {
    error = fmt::format("the checkpoint store cannot be used: {}", cerr_strerror(rc));
    return false;
  }
  const auto store = lum_linux::checkpoints_status();
  if (!store.set_aside.empty()) {
    say("the checkpoint store was not usable ({}) and is now {}", store.set_aside_reason,
        store.set_aside.string());
  }
  restarted = store.restart;

  lum_infra_params params = {};
  params.evm = platform.evm();
  params.restart = restarted ? 1 : 0;
  params.pm_alarm_test = alarm_tests ? 1 : 0;
  std::strncpy(params.process_name, "lumd", sizeof params.process_name - 1);
  const lum_platform_cbs callbacks = polling.watch(platform.callbacks());
  params.platform_cbs = &callbacks;
  if (const cerrno rc = lum_infra_init(&params); !CERR_IS_OK(rc)) {
    error = fmt::format("the library did not start: {}{}", cerr_strerror(rc),
                        rc == EAGAIN ? ": the system gives no more threads, see ulimit -u" : "");
    return false;
  }
  return true;
}

}  // namespace

driver::driver(std::unique_ptr<lum_linux::platform> platform,
               const lum_linux::node_description &as_read)
    : platform_(std::move(platform)),
      described_(platform_->node(), as_read),
      cages_(platform_->node(), platform_->modules()),
      feed_(*this),
      records_(events_, history_, platform_->node().state_directory / records_name),
      event_watch_(*this, events_) {}

driver *driver::start(const lum_linux::node_description &node,
                      const lum_linux::node_description &as_read, bool alarm_tests,
                      std::string &error) {
  auto platform = lum_linux::platform::start(node, error);
  if (!platform) return nullptr;
  auto *const result = new driver(std::move(platform), as_read);
  result->records_.wait_until_read(reading_limit);
  const bool good =
      start_library(*result->platform_, result->polling_, alarm_tests, result->restarted_, error);
  return good ? result : nullptr;
}

void driver::bring_up() {
  event starts;
  starts.kind = name_of(lum_words::events, lum_words::event_id::driver_started);
  starts.text = fmt::format("node \"{}\": {}, {} start", node().name,
                            lum_wording::counted(node().ports().size(), "port"),
                            restarted_ ? "warm" : "cold");
  events_.add(std::move(starts), "driver");
  event_watch_.look();  // what is wrong from the start is told first
  cage_thread_ = std::make_unique<periodic>(cage_thread_name, cage_period, [this] {
    cages_.look(node());
    if (cage_rounds_++ % rounds_of_a_led == 0 || platform_->leds().in_trouble()) {
      platform_->leds().look();
    }
  });
  feed_thread_ = std::make_unique<periodic>(feed_thread_name, feed_period, [this] {
    feed_.feed_polled();
    count_.look();
  });
  event_thread_ = std::make_unique<periodic>(
      event_thread_name, event_period, [this] { event_watch_.look(); }, event_period);
  std::thread([this] { create_ports_whatever_happens(); }).detach();
}

// Without memory for it, what is missing is created a little later.
void driver::create_ports_whatever_happens() {
  for (;;) {
    try {
      return create_ports();
    } catch (const std::exception &) {
      std::this_thread::sleep_for(std::chrono::seconds(1));
    }
  }
}

void driver::create_ports() {
  bool good = true;
  for (const auto &slot : node().slots) {
    const auto turn = turns_.take({slot.number}, std::chrono::hours(1));
    for (const auto &instance : slot.instances) {
      good = CERR_IS_OK(create_missing_ports(*this, slot.number, instance)) && good;
    }
  }
  brought_up_ = true;
  if (!good) say("the node is not complete; the API shows what there is");
}

// Does not follow the clock's small corrections: whoever sees it change takes that for a start.
std::chrono::system_clock::time_point driver::started() const {
  using std::chrono::system_clock;
  const auto by_now =
      system_clock::now() - std::chrono::duration_cast<system_clock::duration>(uptime());
  if (std::chrono::abs(by_now - started_.load()) > std::chrono::seconds(2)) started_ = by_now;
  return started_;
}

std::map<std::string, std::chrono::steady_clock::duration> driver::rounds() const {
  std::map<std::string, std::chrono::steady_clock::duration> ages;
  if (cage_thread_) ages[cage_thread_name] = cage_thread_->since_round();
  if (feed_thread_) ages[feed_thread_name] = feed_thread_->since_round();
  if (event_thread_) ages[event_thread_name] = event_thread_->since_round();
  return ages;
}

// Once nothing adds to them any more but what is left behind.
void driver::end_events() {
  if (event_thread_ && !event_thread_->stop()) return;
  event stops;
  stops.kind = name_of(lum_words::events, lum_words::event_id::driver_stopped);
  stops.text = "the driver has been told to stop";
  events_.add(std::move(stops), "driver");
  event_watch_.tell_the_rest();
  records_.stop(keeping_limit);
}

void driver::stop() {
  platform_->modules().stop();
  for (const auto *port : node().ports()) {
    const auto module = platform_->modules().status(port->rsip);
    if (!module || module->busy_for < hung_after) continue;
    say("port {}: a transfer has not ended for {} s; it is left to the kernel", port->name,
        std::chrono::duration_cast<std::chrono::seconds>(module->busy_for).count());
  }
  if (cage_thread_) cage_thread_->stop();
  if (feed_thread_) feed_thread_->stop();
  end_events();
  platform_->stop(std::chrono::seconds(2));
  for (const ctrace_handle channel : {ct_err, ct_info, ct_debug, ct_periodic}) {
    if (channel != 0) ctrace_dump(channel);
  }
}

}  // namespace lumd
