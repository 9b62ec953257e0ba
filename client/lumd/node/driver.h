// The node at work: platform, library and slots, brought up in the order the library wants and
// taken down within a bound.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lum_linux/periodic.h"
#include "lum_linux/platform.h"
#include "node/cages.h"
#include "node/controller_count.h"
#include "node/data_feed.h"
#include "node/described_node.h"
#include "node/event_watch.h"
#include "node/polling_clock.h"
#include "node/port_creations.h"
#include "node/state_log.h"
#include "node/turns.h"
#include "records/event_log.h"
#include "records/keeper.h"
#include "records/reading_history.h"

namespace lumd {

class driver {
 public:
  // Starts the platform and the library; there are no ports yet. Returns null with `error` saying
  // what failed. SIGTERM and SIGINT are to be blocked before: the threads inherit it. With
  // `alarm_tests` the library's hooks for injected alarms and readings are there. What is returned
  // lives until the process ends, for the library's threads and those that serve requests use it.
  // `as_read` is the description as its file has it.
  static driver *start(const lum_linux::node_description &node,
                       const lum_linux::node_description &as_read, bool alarm_tests,
                       std::string &error);

  driver(const driver &) = delete;
  driver &operator=(const driver &) = delete;

  // Begins, on threads of its own, to open every slot, to create every port of the description, to
  // watch the cages and to feed the monitoring services: a module that hangs may keep the creation
  // waiting. The driver must live until the process ends from then on.
  void bring_up();

  lum_linux::platform &platform() { return *platform_; }
  cage_watch &cages() { return cages_; }
  polling_clock &polling() { return polling_; }
  data_feed &feed() { return feed_; }
  state_log &states() { return states_; }
  event_log &events() { return events_; }
  reading_history &history() { return history_; }
  record_keeper &records() { return records_; }
  // As it is called and described now; see described_node.
  const lum_linux::node_description &node() const { return described_.now(); }
  described_node &described() { return described_; }
  bool restarted() const { return restarted_; }
  // By the clock as it is set now: it may have been wrong then.
  std::chrono::system_clock::time_point started() const;
  std::chrono::steady_clock::duration uptime() const {
    return std::chrono::steady_clock::now() - started_at_;
  }

  // When a moment was, by the clock as it is set now.
  std::chrono::system_clock::time_point time_of(
      std::chrono::steady_clock::time_point moment) const {
    return started() +
           std::chrono::duration_cast<std::chrono::system_clock::duration>(moment - started_at_);
  }

  // Taken by whoever opens slots and creates or deletes ports: the library wants that of a slot
  // from one thread at a time.
  slot_turns &turns() { return turns_; }

  // Whether the library's count of controllers keeps it from polling.
  const controller_count_watch &count() const { return count_; }

  // Every port of the description has been asked for since the start.
  bool is_brought_up() const { return creations_.have_ended(); }

  // Something has been done to the node: what came of it is looked at at once, and each second for
  // a while. Any thread; waits for nothing but a short lock.
  void look_soon();

  // How long ago each of the driver's own threads came round, by its name.
  std::map<std::string, std::chrono::steady_clock::duration> rounds() const;

  // Ends everything that can be ended, each step within a bound, and writes the traces out. The
  // library's own threads go on until the process exits.
  void stop();

 private:
  driver(std::unique_ptr<lum_linux::platform> platform, const lum_linux::node_description &as_read);
  std::chrono::milliseconds look();
  void look_at_leds();
  void create_ports();
  void end_events();

  std::unique_ptr<lum_linux::platform> platform_;
  described_node described_;
  bool restarted_ = false;
  mutable std::atomic<std::chrono::system_clock::time_point> started_{
      std::chrono::system_clock::now()};
  std::chrono::steady_clock::time_point started_at_ = std::chrono::steady_clock::now();
  slot_turns turns_;
  cage_watch cages_;
  state_log states_;
  port_creations creations_;
  data_feed feed_;
  controller_count_watch count_;
  polling_clock polling_;
  event_log events_;
  reading_history history_;
  record_keeper records_;
  event_watch event_watch_;
  // Of the thread that looks, and of the one that starts it before that.
  std::vector<port_words> words_;
  std::optional<std::chrono::steady_clock::time_point> leds_looked_at_;
  uint64_t kept_up_to_ = 0;  // the number of the last event that the keeper was told of
  std::atomic<std::chrono::steady_clock::time_point> lively_until_{};
  std::atomic<lum_linux::periodic *> look_thread_{nullptr};  // lives until the process ends
};

}  // namespace lumd
