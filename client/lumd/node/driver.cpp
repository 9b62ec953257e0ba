#include "node/driver.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include "lum.h"
#include "lum_linux/leds.h"
#include "lum_linux/modules.h"
#include "lum_linux/services.h"
#include "node/log.h"
#include "node/port_snapshot.h"
#include "wording/numbers.h"
#include "words/events.h"

namespace lumd {
namespace {

using lum_linux::periodic;

using std::chrono::milliseconds;

constexpr const char *look_thread_name = "lumd-look";
// Between two looks while anything is under way or a cage has no module, and at most while not.
constexpr milliseconds look_period(1000);
constexpr milliseconds long_look_period(6000);
constexpr milliseconds led_period(4500);  // of those that are well; less than a polling cycle
constexpr std::chrono::seconds lively_for(3);
constexpr const char *records_name = "records.db";
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
      creations_(*this),
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
  gather_words(words_);
  event_watch_.look(words_);  // what is wrong from the start is told first
  look_thread_ = new periodic(
      look_thread_name, [this] { return look(); }, look_period);
  std::thread([this] { create_ports(); }).detach();
}

// One pass over the ports: cages, the feed, LEDs, and what of all that is told. Returns how long
// the next one can wait: until the next polling cycle has ended, when nothing else is to be seen.
milliseconds driver::look() {
  lum_linux::modules &modules = platform_->modules();
  modules.look();
  bool is_under_way = !feed_.feed_polled(words_);
  is_under_way = cages_.compare(node(), words_) || is_under_way;
  is_under_way = count_.look() || is_under_way;
  look_at_leds();
  is_under_way = event_watch_.look(words_) || is_under_way;
  if (const uint64_t last = events_.last(); last != kept_up_to_) {
    kept_up_to_ = last;
    records_.hasten();
  }
  const auto now = std::chrono::steady_clock::now();
  const auto due = polling_.next_end();
  if (is_under_way || !is_brought_up() || !due || now < lively_until_.load()) return look_period;
  const auto rest = std::min(std::chrono::ceil<milliseconds>(*due - now), long_look_period);
  const bool is_known_until_then = modules.unasked_for() > rest && !platform_->leds().in_trouble();
  return is_known_until_then ? rest : std::min(rest, look_period);
}

void driver::look_at_leds() {
  const auto now = std::chrono::steady_clock::now();
  const bool due = !leds_looked_at_ || now - *leds_looked_at_ >= led_period;
  if (!due && !platform_->leds().in_trouble()) return;
  leds_looked_at_ = now;
  platform_->leds().look();
}

void driver::look_soon() {
  lively_until_ = std::chrono::steady_clock::now() + lively_for;
  if (periodic *thread = look_thread_) thread->hasten();
}

// Without memory for it, what is missing is created a little later.
void driver::create_ports() {
  for (;;) {
    try {
      return creations_.begin();
    } catch (const std::exception &) {
      std::this_thread::sleep_for(std::chrono::seconds(1));
    }
  }
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
  if (const periodic *thread = look_thread_) ages[look_thread_name] = thread->since_round();
  return ages;
}

// Once nothing adds to them any more but what is left behind.
void driver::end_events() {
  if (periodic *thread = look_thread_; thread && !thread->stop()) return;
  event stops;
  stops.kind = name_of(lum_words::events, lum_words::event_id::driver_stopped);
  stops.text = "the driver has been told to stop";
  events_.add(std::move(stops), "driver");
  event_watch_.tell_the_rest();
  records_.stop(keeping_limit);
}

void driver::stop() {
  creations_.stop();
  platform_->modules().stop();
  for (const auto *port : node().ports()) {
    const auto module = platform_->modules().status(port->rsip);
    if (!module || module->busy_for < hung_after) continue;
    say("port {}: a transfer has not ended for {} s; it is left to the kernel", port->name,
        std::chrono::duration_cast<std::chrono::seconds>(module->busy_for).count());
  }
  end_events();
  platform_->stop(std::chrono::seconds(2));
  for (const ctrace_handle channel : {ct_err, ct_info, ct_debug, ct_periodic}) {
    if (channel != 0) ctrace_dump(channel);
  }
}

}  // namespace lumd
