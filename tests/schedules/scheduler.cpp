#include "scheduler.h"

#include <cerrno>
#include <climits>
#include <utility>

extern "C" {
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*start)(void *), void *argument);
int __real_pthread_mutex_trylock(pthread_mutex_t *mutex);
int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);
}

namespace schedules {
namespace {

// Seam calls of a usual schedule, among which the moments of change are drawn.
constexpr uint64_t usual_steps = 1500;
constexpr uint32_t most_changes = 6;
constexpr uint64_t highest_priority = 1u << 20;

void await(sem_t &semaphore) {
  while (sem_wait(&semaphore) != 0) {
  }
}

}  // namespace

thread_local scheduler::thread *scheduler::self_ = nullptr;

scheduler::scheduler(uint64_t seed)
    : random_(seed), choices_(~seed), by_priority_(seed % 2 == 0), lowest_priority_(most_changes) {
  const uint64_t changes = choices_() % (most_changes + 1);
  while (change_points_.size() < changes) change_points_.insert(choices_() % usual_steps);
  switch_odds_ = 2u << choices_() % 6;
  sem_init(&ended_, 0, 0);
}

void scheduler::add(const std::string &name, std::function<void()> work) {
  auto added = std::make_unique<thread>();
  added->name = name;
  added->work = std::move(work);
  added->priority = most_changes + 1 + choices_() % highest_priority;
  sem_init(&added->turn, 0, 0);
  threads_.push_back(std::move(added));
}

bool scheduler::run() {
  support::director = this;
  struct start {
    scheduler *of;
    thread *which;
  };
  for (const auto &each : threads_) {
    pthread_t id;
    __real_pthread_create(&id, nullptr, begin, new start{this, each.get()});
    pthread_detach(id);
  }
  thread *first = choose();
  if (first != nullptr) {
    sem_post(&first->turn);
    await(ended_);
  }
  support::director = nullptr;
  return !stuck_;
}

void *scheduler::begin(void *argument) {
  struct start {
    scheduler *of;
    thread *which;
  };
  const auto given = *static_cast<start *>(argument);
  await(given.which->turn);
  self_ = given.which;
  given.which->work();
  given.of->finish_work();
  return nullptr;
}

// The thread stays, so that nothing that its end would do comes between.
void scheduler::finish_work() {
  self_->done = true;
  switch_from(*self_);
}

void scheduler::at_call(std::string_view name, const std::string &text) {
  for (const char letter : name) story_ = (story_ ^ static_cast<uint8_t>(letter)) * 1099511628211u;
  if (at_each_call) at_each_call(self_->name, text);
  step();
}

void scheduler::step() {
  ++steps_;
  if (by_priority_) {
    if (change_points_.contains(steps_)) self_->priority = --lowest_priority_;
  } else if (choices_() % switch_odds_ == 0) {
    self_->priority = choices_() % highest_priority;
  }
  switch_from(*self_);
}

void scheduler::switch_from(thread &from) {
  thread *next = choose();
  if (next == &from) return;
  if (next == nullptr) {
    for (const auto &each : threads_) stuck_ = stuck_ || !each->done;
    sem_post(&ended_);
  } else {
    for (const char letter : next->name) {
      story_ = (story_ ^ static_cast<uint8_t>(letter)) * 1099511628211u;
    }
    sem_post(&next->turn);
  }
  await(from.turn);
}

scheduler::thread *scheduler::choose() {
  thread *chosen = nullptr;
  for (const auto &each : threads_) {
    if (!can_go_on(*each)) continue;
    if (chosen == nullptr || each->priority > chosen->priority) chosen = each.get();
  }
  return chosen;
}

bool scheduler::can_go_on(const thread &each) const {
  if (each.done || each.blocked_on != nullptr) return false;
  return !each.until || each.until();
}

void scheduler::block_on(const void *place, const std::string &what) {
  self_->blocked_on = place;
  self_->waits_for = what;
  switch_from(*self_);
}

void scheduler::wake(const void *place, int count) {
  for (const auto &each : threads_) {
    if (count <= 0) return;
    if (each->blocked_on != place) continue;
    each->blocked_on = nullptr;
    --count;
  }
}

void scheduler::wait_until(const std::string &what, std::function<bool()> holds) {
  self_->until = std::move(holds);
  self_->waits_for = what;
  switch_from(*self_);
  self_->until = nullptr;
}

void scheduler::taken(pthread_mutex_t *mutex) {
  holders_[mutex] = self_;
  self_->mutexes.emplace_back(mutex, ++takings_);
}

// Another than the holder waits for the unlocking; the holder itself gets the mutex's own answer.
int scheduler::lock(pthread_mutex_t *mutex) {
  step();
  for (;;) {
    int rc = __real_pthread_mutex_trylock(mutex);
    if (rc == EBUSY) {
      const auto holder = holders_.find(mutex);
      if (holder != holders_.end() && holder->second == self_) {
        return __real_pthread_mutex_lock(mutex);
      }
      block_on(mutex, "a mutex of " + (holder == holders_.end() ? "nobody" : holder->second->name));
      continue;
    }
    if (rc == 0) taken(mutex);
    return rc;
  }
}

int scheduler::trylock(pthread_mutex_t *mutex) {
  step();
  const int rc = __real_pthread_mutex_trylock(mutex);
  if (rc == 0) taken(mutex);
  return rc;
}

int scheduler::unlock(pthread_mutex_t *mutex) {
  const int rc = __real_pthread_mutex_unlock(mutex);
  if (rc == 0) {
    holders_.erase(mutex);
    std::erase_if(self_->mutexes, [mutex](const auto &each) { return each.first == mutex; });
    wake(mutex, INT_MAX);
  }
  step();
  return rc;
}

scheduler::holding scheduler::held() const {
  const auto &mutexes = self_->mutexes;
  return {mutexes.size(), mutexes.empty() ? 0 : mutexes.front().second};
}

void scheduler::sleep() {
  if (cycles_left != 0) {
    --cycles_left;
    return step();
  }
  if (!last_cycle_when) return finish_work();
  wait_until("the last cycle", std::exchange(last_cycle_when, nullptr));
}

long scheduler::futex_wait(const uint32_t *word, uint32_t expected) {
  if (__atomic_load_n(word, __ATOMIC_SEQ_CST) != expected) {
    errno = EAGAIN;
    return -1;
  }
  block_on(word, "a word");
  return 0;
}

long scheduler::futex_wake(const uint32_t *word, int count) {
  wake(word, count);
  step();
  return 0;
}

std::string scheduler::who_waits() const {
  std::string text;
  for (const auto &each : threads_) {
    if (!each->done) text += each->name + " waits for " + each->waits_for + "; ";
  }
  return text;
}

}  // namespace schedules
