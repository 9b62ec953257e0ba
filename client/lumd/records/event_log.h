// What has happened, the latest of it, for whoever asks and for whoever keeps it.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "records/event.h"

namespace lumd {

// Any thread; nothing here waits for more than a short lock.
class event_log {
 public:
  using clock = std::chrono::steady_clock;

  static constexpr std::size_t most_events = 10000;

  // Of one subject so many are told at once; the rest of a window's come as the last of them, with
  // their number, when it ends.
  static constexpr unsigned most_at_once = 5;
  static constexpr std::chrono::seconds window{60};

  // What earlier processes have kept, in the order of its numbers, and the first number for events
  // of this one. What this one has taken in already gets other numbers where they were another's.
  // May throw std::bad_alloc.
  void begin(std::vector<event> earlier, uint64_t next);

  // Takes one in and gives it a number. `subject` is what it is about: events of one subject that
  // come too fast are summed up. Without memory it is lost, and counted.
  void add(event happened, const std::string &subject) noexcept;

  // Takes in what windows that have ended have held back. Now and then.
  void sum_up(clock::time_point now = clock::now());
  // Whether anything is held back.
  bool holds_back() const;
  // All that is held back, at once.
  void sum_up_all() { sum_up(clock::time_point::max()); }

  struct selection {
    std::vector<event> events;  // with numbers above what was asked for, the earliest first
    uint64_t first = 0;         // that there is; 0 without any
    uint64_t last = 0;          // given out as yet
  };
  selection after(uint64_t number, std::size_t most) const;
  uint64_t last() const;

  // Those that this has not returned yet, without those of earlier processes.
  std::vector<event> untold();

  // Since the start, by their kinds; those that were summed up are counted too.
  std::map<std::string, uint64_t, std::less<>> counts() const;

  // Those not kept yet, the earliest first.
  std::vector<event> unkept(std::size_t most) const;
  void kept(uint64_t number);  // that one and all before it
  bool is_all_kept() const;

  // Events that will never be kept, since the start.
  uint64_t lost() const;

  // Called after each event, on the thread that adds it, under no lock; it must wait for nothing
  // and throw nothing.
  void on_more(std::function<void()> call);

 private:
  struct series {
    clock::time_point begun{};
    unsigned told = 0;
    uint64_t held_back = 0;  // `last` included
    std::optional<event> last;
  };

  void take(event happened);
  bool is_too_fast(const std::string &subject, event &happened);

  mutable std::mutex mutex_;  // guards the rest
  std::deque<event> events_;
  std::vector<event> untold_;
  std::map<std::string, series> series_;
  uint64_t first_own_ = 1;  // number
  uint64_t next_ = 1;
  std::map<std::string, uint64_t, std::less<>> counts_;  // by kind
  uint64_t kept_ = 0;                                    // the highest number
  uint64_t lost_ = 0;
  std::function<void()> more_;
};

}  // namespace lumd
