#include "commands/port_feed.h"

#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <nlohmann/json.hpp>
#include <system_error>
#include <thread>
#include <utility>

namespace lumctl {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using seconds = std::chrono::duration<double>;

// How often the driver is asked whether a polling cycle has ended, and how long a picture stays
// when none does: what has gone wrong is then shown.
constexpr milliseconds between_questions(500);
constexpr seconds longest_still(10);

// How long an answer that is under way at the end may take.
constexpr milliseconds longest_farewell(500);

std::uint64_t cycles_of(const api_result &polling) {
  if (polling.what != outcome::done || !polling.body->is_object()) return 0;
  const auto found = polling.body->find("cycles");
  return found != polling.body->end() && found->is_number_unsigned() ? found->get<std::uint64_t>()
                                                                     : 0;
}

// A thread that gets none of the process's signals.
std::thread start_quietly(const std::function<void()> &run) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread started(run);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return started;
}

}  // namespace

port_news ask_for_news(const session &now, const port_selection &wanted) {
  port_news news;
  news.polling = get(now.driver, "/v1/polling", now.patience);
  if (news.polling.what == outcome::done) news.ports = ask_for_ports(now, wanted);
  return news;
}

void wait_for_next(const session &now, const port_news &shown, double interval,
                   const std::function<bool(milliseconds)> &is_over) {
  const auto begun = clock::now();
  const bool counts_seconds = interval > 0 && shown.good();
  const seconds longest = counts_seconds ? seconds(interval) : longest_still;
  for (;;) {
    const seconds left = longest - (clock::now() - begun);
    if (left.count() <= 0) return;
    const auto pause = std::chrono::ceil<milliseconds>(std::min<seconds>(left, between_questions));
    if (is_over(pause)) return;
    if (counts_seconds) continue;
    const api_result polling = get(now.driver, "/v1/polling", now.patience);
    if (polling.what != shown.polling.what || cycles_of(polling) != cycles_of(shown.polling)) {
      return;
    }
  }
}

// Outlives the feed where the driver owes its thread an answer.
struct port_feed::shared {
  session now;
  port_selection wanted;
  double interval = 0;
  int descriptor = -1;
  mutable std::mutex mutex;  // guards the rest
  std::condition_variable changed;
  std::optional<port_news> latest;
  std::optional<clock::time_point> asked;
  bool over = false;
  bool ended = false;  // the thread has

  ~shared() { ::close(descriptor); }

  void run() {
    while (!is_over(milliseconds(0))) {
      begin_to_ask();
      const port_news news = look();
      publish(news);
      wait_for_next(now, news, interval, [this](milliseconds pause) {
        const bool ends = is_over(pause);
        begin_to_ask();
        return ends;
      });
    }
  }

  void end() {
    std::lock_guard lock(mutex);
    ended = true;
    changed.notify_all();
  }

  // An answer that lacks something is an error to show, and not the end of the process.
  port_news look() const {
    try {
      return ask_for_news(now, wanted);
    } catch (const json::exception &) {
      port_news none;
      none.polling.error = "the driver's answer lacks something; is it another version?";
      return none;
    }
  }

  void begin_to_ask() {
    std::lock_guard lock(mutex);
    asked = clock::now();
  }

  void publish(const port_news &news) {
    std::lock_guard lock(mutex);
    asked.reset();
    latest = news;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(descriptor, &one, sizeof one);
  }

  bool is_over(milliseconds pause) {
    std::unique_lock lock(mutex);
    asked.reset();  // nothing is owed meanwhile
    return changed.wait_for(lock, pause, [this] { return over; });
  }
};

port_feed::port_feed(const session &now, const port_selection &wanted, double interval)
    : state_(std::make_shared<shared>()) {
  state_->now = now;
  state_->wanted = wanted;
  state_->interval = interval;
  state_->descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (state_->descriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  start_quietly([state = state_] {
    state->run();
    state->end();
  }).detach();
}

// Its thread may wait for the driver for as long as the driver likes; it is not waited for then.
port_feed::~port_feed() {
  std::unique_lock lock(state_->mutex);
  state_->over = true;
  state_->changed.notify_all();
  state_->changed.wait_for(lock, longest_farewell, [this] { return state_->ended; });
}

int port_feed::descriptor() const { return state_->descriptor; }

std::optional<port_news> port_feed::take() {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t got = ::read(state_->descriptor, &count, sizeof count);
  std::lock_guard lock(state_->mutex);
  return std::exchange(state_->latest, std::nullopt);
}

std::chrono::seconds port_feed::waiting() const {
  std::lock_guard lock(state_->mutex);
  if (!state_->asked) return std::chrono::seconds(0);
  return std::chrono::duration_cast<std::chrono::seconds>(clock::now() - *state_->asked);
}

}  // namespace lumctl
