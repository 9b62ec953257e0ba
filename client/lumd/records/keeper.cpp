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
constexpr std::chrono::seconds pause_between_openings(10);
constexpr std::size_t most_in_one_go = 1000;

}  // namespace

record_keeper::record_keeper(event_log &events, std::filesystem::path file)
    : events_(events), path_(std::move(file)), problem_("what was kept is still being read") {
  thread_ = std::make_unique<lum_linux::periodic>("lumd-records", period, [this] { look(); });
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
void record_keeper::look() {
  if (!file_) open();
  if (file_) write(false);
}

void record_keeper::open() {
  const auto now = std::chrono::steady_clock::now();
  if (tried_ != std::chrono::steady_clock::time_point() && now - tried_ < pause_between_openings) {
    return;
  }
  tried_ = now;
  auto found = record_file::open(path_, event_log::most_events);
  events_.begin(std::move(found.events), found.next);
  file_ = std::move(found.file);
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
  const auto fresh = events_.unkept(most_in_one_go);
  if (fresh.empty() && !is_last) return;
  const uint64_t next = fresh.empty() ? events_.last() + 1 : fresh.back().number + 1;
  const std::string why = is_last ? file_->close(fresh, next) : file_->add(fresh, next);
  if (why.empty() && !fresh.empty()) events_.kept(fresh.back().number);
  set_problem(why);
  if (why.empty()) tell_of_losses();
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
