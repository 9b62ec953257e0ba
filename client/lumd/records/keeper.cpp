#include "records/keeper.h"

#include <fmt/format.h>

#include <future>
#include <thread>

#include "wording/numbers.h"
#include "words/events.h"

namespace lumd {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds period(1000);
constexpr milliseconds long_period(15000);  // while nothing is to be kept
constexpr std::chrono::seconds pause_between_openings(10);
constexpr std::chrono::minutes pause_between_histories(1);
constexpr std::size_t most_in_one_go = 1000;

}  // namespace

record_keeper::record_keeper(event_log &events, reading_history &history,
                             std::filesystem::path file)
    : events_(events),
      history_(history),
      path_(std::move(file)),
      problem_("what was kept is still being read") {
  thread_ = std::make_unique<lum_linux::periodic>(
      "lumd-records", [this] { return look(); }, period);
}

void record_keeper::wait_until_read(milliseconds bound) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, bound, [this] { return read_; });
}

std::string record_keeper::problem() const {
  const std::lock_guard lock(mutex_);
  return problem_;
}

bool record_keeper::stop(milliseconds bound) {
  if (!thread_->stop(bound)) return false;
  const auto ended = std::make_shared<std::promise<void>>();
  auto end = ended->get_future();
  std::thread([this, ended] {
    try {
      if (file_) write(true);
      file_.reset();
    } catch (const std::bad_alloc &) {
    }
    ended->set_value();
  }).detach();
  return end.wait_for(bound) == std::future_status::ready;
}

// Whatever there is no memory for now is kept with the next look.
milliseconds record_keeper::look() {
  if (!file_) open();
  if (file_) write(false);
  return file_ && events_.is_all_kept() ? long_period : period;
}

void record_keeper::open() {
  const auto now = std::chrono::steady_clock::now();
  if (tried_ != std::chrono::steady_clock::time_point() && now - tried_ < pause_between_openings) {
    return;
  }
  tried_ = now;
  auto found = record_file::open(path_, event_log::most_events);
  events_.begin(std::move(found.held.events), found.held.next);
  if (took_back_) {
    history_.mark_nothing_kept();
    lum_linux::pm_mark_nothing_kept();
  } else if (found.was_read) {
    history_.take_back(found.held.samples);
    lum_linux::pm_take_back(found.held.bins);
    took_back_ = true;
  }
  file_ = std::move(found.file);
  if (!found.put_aside.empty()) tell_of_damage(found.put_aside);
  set_problem(found.problem);
  const std::lock_guard lock(mutex_);
  read_ = true;
  changed_.notify_all();
}

void record_keeper::write(bool is_last) {
  if (file_->is_gone()) {
    file_.reset();
    tried_ = {};
    return set_problem(fmt::format("{} has been moved or removed", path_.native()));
  }
  const record_change change = changes(is_last);
  if (change.is_empty() && !is_last) return;
  const std::string why = file_->take(change);
  set_problem(why);
  if (!why.empty()) return;
  if (!change.events.empty()) events_.kept(change.events.back().number);
  history_.mark_kept(change.samples);
  lum_linux::pm_mark_kept(change.bins);
  tell_of_losses();
}

record_change record_keeper::changes(bool is_last) {
  record_change change;
  change.events = events_.unkept(is_last ? event_log::most_events : most_in_one_go);
  change.next = events_.last() + 1;
  change.is_last = is_last;
  const auto now = std::chrono::steady_clock::now();
  if (!is_last && now - kept_history_ < pause_between_histories) return change;
  kept_history_ = now;
  change.samples = history_.unkept();
  change.bins = lum_linux::pm_not_kept_yet();
  return change;
}

void record_keeper::tell_of_damage(const std::string &put_aside) {
  event told;
  told.kind = name_of(lum_words::events, lum_words::event_id::events_lost);
  told.how_bad = severity::warning;
  told.text =
      fmt::format("what was kept of events, readings and bins could not be read: {}", put_aside);
  events_.add(std::move(told), "events-lost");
}

void record_keeper::tell_of_losses() {
  const auto lost = static_cast<int64_t>(events_.lost());
  if (lost == told_lost_) return;
  event told;
  told.kind = name_of(lum_words::events, lum_words::event_id::events_lost);
  told.how_bad = severity::warning;
  told.text = lum_wording::counted(static_cast<std::size_t>(lost - told_lost_), "event") +
              " happened that could not be kept";
  told.details = {{"events", lost - told_lost_}};
  told_lost_ = lost;
  events_.add(std::move(told), "events-lost");
}

void record_keeper::set_problem(const std::string &problem) {
  const std::lock_guard lock(mutex_);
  problem_ = problem;
}

}  // namespace lumd
