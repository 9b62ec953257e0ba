// Hands what the library has polled to the performance-monitoring and alarm services, and to
// history.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "cerr.h"
#include "node/polling_clock.h"
#include "node/port_data.h"

namespace lumd {

class driver;

// What a controller was fed with last.
struct fed_poll {
  std::chrono::steady_clock::time_point ended;  // of the poll
  uint64_t forced_alarms = 0;                   // bits that a test raised
};

class data_feed {
 public:
  explicit data_feed(driver &node) : node_(node) {}

  // Gathers the ports' words, and feeds the controllers of every module that has been polled since
  // it was fed last: a module that is not polled, or fails, adds nothing to the averages. Waits for
  // nothing: what is not fed while somebody holds the feed, is fed with the next call. Returns
  // whether all that was polled has been fed. One thread at a time. May throw std::bad_alloc.
  bool feed_polled(std::vector<port_words> &words);

  // Nothing is fed while this is held: what the library has polled is being cleared, or a test
  // changes what it adds to it.
  [[nodiscard]] std::unique_lock<std::mutex> hold() { return std::unique_lock(feeding_); }

  // Hands on to one controller what `poll` has stored. The caller holds the feed. What goes out is
  // marked as a test's, also when the test adds nothing.
  cerrno hand_on_for_test(const port_copy &port, std::size_t sub_port, const module_poll &poll);

  // How often anything has been handed on.
  uint64_t handed_on() const { return handed_on_; }

  // Nothing before the first.
  std::optional<fed_poll> fed(uint32_t ifhandle) const;

 private:
  cerrno hand_on(const port_words::controller &to, const module_poll &poll, bool for_test);
  void feed(const port_words &port, bool is_at_rest);
  void forget_all_but(const std::vector<port_words> &ports);

  driver &node_;
  std::mutex feeding_;
  std::optional<uint64_t> fed_up_to_;  // as many polls, all of them; under feeding_
  std::atomic<uint64_t> handed_on_{0};
  mutable std::mutex mutex_;          // guards fed_
  std::map<uint32_t, fed_poll> fed_;  // by interface handle
};

}  // namespace lumd
