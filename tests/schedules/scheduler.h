// Runs threads one at a time, from one seam call to the next, and chooses by seed which goes on.
// Half of the seeds choose by priorities that are drawn at the start and sink at a few drawn
// moments, so that a mistake that needs few switches is found at known odds; the other half may
// switch at every seam call.
#pragma once

#include <semaphore.h>

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "director.h"

namespace schedules {

class scheduler final : public support::thread_director {
 public:
  explicit scheduler(uint64_t seed);

  // A thread and what it does. Threads never end: they stop when their work is done.
  void add(const std::string &name, std::function<void()> work);
  // Runs the threads until each has done its work or sleeps for good. False when none can go on.
  bool run();
  // Of every thread, what it waits for.
  std::string who_waits() const;

  // For a thread's work: waits until something holds that other threads make so.
  void wait_until(const std::string &what, std::function<bool()> holds);
  // How many more polling cycles there are to be.
  unsigned cycles_left = 0;
  // When there is to be one more, the last.
  std::function<bool()> last_cycle_when;
  // Called with each named call of a thread, before the call is made.
  std::function<void(const std::string &thread, const std::string &text)> at_each_call;
  // What has been chosen so far, as one number.
  uint64_t story() const { return story_; }
  uint64_t steps() const { return steps_; }
  std::mt19937_64 &random() { return random_; }
  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }

  // Of the thread that runs: how many mutexes it holds, and the number of its taking of the first.
  struct holding {
    std::size_t mutexes;
    uint64_t since;
  };
  holding held() const;
  bool is_held(const pthread_mutex_t *mutex) const { return holders_.contains(mutex); }

  bool directs_this_thread() const override { return self_ != nullptr; }
  void at_call(std::string_view name, const std::string &text) override;
  void at_seam() override { step(); }
  int lock(pthread_mutex_t *mutex) override;
  int trylock(pthread_mutex_t *mutex) override;
  int unlock(pthread_mutex_t *mutex) override;
  void sleep() override;
  long futex_wait(const uint32_t *word, uint32_t expected) override;
  long futex_wake(const uint32_t *word, int count) override;

 private:
  struct thread {
    std::string name;
    std::function<void()> work;
    sem_t turn;
    uint64_t priority = 0;
    bool done = false;
    const void *blocked_on = nullptr;  // a mutex or a word
    std::function<bool()> until;       // or what is to hold
    std::string waits_for;
    std::vector<std::pair<const pthread_mutex_t *, uint64_t>> mutexes;
  };

  static void *begin(void *argument);
  void step();
  void switch_from(thread &from);
  thread *choose();
  bool can_go_on(const thread &each) const;
  void block_on(const void *place, const std::string &what);
  void wake(const void *place, int count);
  void taken(pthread_mutex_t *mutex);
  void finish_work();

  static thread_local thread *self_;

  std::vector<std::unique_ptr<thread>> threads_;
  std::map<const pthread_mutex_t *, const thread *> holders_;
  std::mt19937_64 random_;
  std::mt19937_64 choices_;
  bool by_priority_;
  uint32_t switch_odds_ = 8;  // one in so many, where every seam call may switch
  std::set<uint64_t> change_points_;
  uint64_t lowest_priority_;
  uint64_t steps_ = 0;
  uint64_t takings_ = 0;
  uint64_t story_ = 14695981039346656037u;
  sem_t ended_;
  bool stuck_ = false;
};

}  // namespace schedules
