#include "node/polling_clock.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <new>

namespace lumd {
namespace {

constexpr const char *polling_thread = "lum_dom_thread";
constexpr std::chrono::seconds period(5);
// The library pauses 30 ms between the attempts of a transfer and makes none between two cycles for
// `period`.
// Should the machine not run the thread for so long between its last transfer and the store of what
// it read, then for that moment the poll before is shown with the age of this one.
constexpr std::chrono::milliseconds quiet(300);
constexpr std::chrono::milliseconds long_quiet(4500);
// By so much may a cycle end later than the pace of the last two says.
constexpr std::chrono::milliseconds quiet_slack(200);
// A visit ends with its first failed transfer; after two good ones it stores what it has read.
constexpr unsigned blocks_of_a_poll = 2;

polling_clock *the_clock = nullptr;
lum_platform_cbs original = {};

// The polling thread has its name before its first call.
bool on_polling_thread() {
  thread_local const bool is_it = [] {
    std::array<char, 16> name = {};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    return std::strcmp(name.data(), polling_thread) == 0;
  }();
  return is_it;
}

// A callback that is running, when it is the polling thread's.
class call {
 public:
  call() : counts_(on_polling_thread()) {
    if (counts_) the_clock->enter();
  }
  ~call() {
    if (counts_) the_clock->leave();
  }
  call(const call &) = delete;
  call &operator=(const call &) = delete;

 private:
  bool counts_;
};

// The first call of a visit.
cerrno fw_upgrade_status(uint32_t rsip, uint32_t *status) {
  if (on_polling_thread()) the_clock->visit(rsip);
  const call timed;
  return original.fw_upgrade_status(rsip, status);
}

cerrno read_byte(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page, uint32_t offset,
                 uint8_t *value) {
  const call timed;
  return original.i2c_read_byte(slot, instance, port, page, offset, value);
}

cerrno read_block(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page, uint32_t offset,
                  int32_t length, uint8_t *buffer) {
  const call timed;
  const cerrno rc = original.i2c_read_block(slot, instance, port, page, offset, length, buffer);
  if (CERR_IS_OK(rc) && on_polling_thread()) the_clock->has_read();
  return rc;
}

cerrno set_led(uint32_t rsip, uint32_t zero, uint32_t state) {
  const call timed;
  return original.led_set_state(rsip, zero, state);
}

}  // namespace

lum_platform_cbs polling_clock::watch(const lum_platform_cbs &callbacks) {
  the_clock = this;
  original = callbacks;
  lum_platform_cbs watched = callbacks;
  watched.fw_upgrade_status = fw_upgrade_status;
  if (callbacks.i2c_read_byte != nullptr) watched.i2c_read_byte = read_byte;
  if (callbacks.i2c_read_block != nullptr) watched.i2c_read_block = read_block;
  if (callbacks.led_set_state != nullptr) watched.led_set_state = set_led;
  return watched;
}

polling_report polling_clock::report() {
  const bool paused = ::access(pause_switch, F_OK) == 0;
  std::lock_guard lock(mutex_);
  end_when_quiet(now_());
  return {cycles_, running_, inside_, paused, now_() - last_activity_, last_rsip_, current_, last_};
}

std::chrono::steady_clock::duration polling_clock::last_pass() {
  std::lock_guard lock(mutex_);
  end_when_quiet(now_());
  return last_ ? last_->ended - last_->started : clock::duration();
}

polling_standing polling_clock::standing() {
  std::lock_guard lock(mutex_);
  end_when_quiet(now_());
  return {cycles_, running_};
}

std::optional<polling_clock::clock::time_point> polling_clock::next_end() {
  std::lock_guard lock(mutex_);
  const auto now = now_();
  end_when_quiet(now);
  if (running_ || !last_ || !last_->lateness) return std::nullopt;
  const auto known_at = last_->ended + period + *last_->lateness + quiet + quiet_slack;
  return known_at > now ? std::optional(known_at) : std::nullopt;
}

std::optional<module_poll> polling_clock::last_poll(uint32_t rsip) {
  std::lock_guard lock(mutex_);
  end_when_quiet(now_());
  const auto found = polls_.find(rsip);
  return found == polls_.end() ? std::nullopt : std::optional(found->second);
}

uint64_t polling_clock::polls() {
  std::lock_guard lock(mutex_);
  end_when_quiet(now_());
  return stored_;
}

// The ports are visited in ascending order, so one that does not follow the last begins a cycle.
void polling_clock::visit(uint32_t rsip) {
  std::lock_guard lock(mutex_);
  const auto now = now_();
  end_when_quiet(now);
  const bool had_one = last_.has_value() || running_;
  const bool begins = !had_one || rsip <= last_rsip_ || now - last_activity_ > long_quiet;
  if (begins) {
    if (running_) end();
    const auto before = current_.started;
    current_ = {now, now, 0, {}};
    if (had_one) current_.lateness = now - before - period;
    counted_ = false;
  }
  end_visit();
  visit_began_ = now;
  running_ = true;  // also when it had only been waiting for a port's mutex
  ++current_.ports;
  last_rsip_ = rsip;
  last_activity_ = now;
}

// A visit that had to wait for its port's mutex may have been taken for ended.
void polling_clock::enter() {
  std::lock_guard lock(mutex_);
  inside_ = true;
  running_ = true;
}

void polling_clock::leave() {
  std::lock_guard lock(mutex_);
  inside_ = false;
  last_activity_ = now_();
  current_.ended = last_activity_;
}

void polling_clock::has_read() {
  std::lock_guard lock(mutex_);
  ++blocks_read_;
}

// What was read has been stored by the time of the next visit, or of the pause after the last one.
// Without memory for a port's first poll, the next one is its first.
void polling_clock::end_visit() {
  const bool good = blocks_read_ >= blocks_of_a_poll;
  blocks_read_ = 0;
  if (!good) return;
  ++stored_;
  try {
    polls_[last_rsip_] = {visit_began_, last_activity_};
  } catch (const std::bad_alloc &) {
  }
}

// Only the pause between two cycles is that quiet.
void polling_clock::end_when_quiet(clock::time_point now) {
  if (!running_ || inside_ || now - last_activity_ <= quiet) return;
  end_visit();
  end();
}

void polling_clock::end() {
  running_ = false;
  last_ = current_;
  if (!counted_) ++cycles_;
  counted_ = true;
}

}  // namespace lumd
