#include "modules/module_entry.h"

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

namespace lum_linux {
namespace {

constexpr std::chrono::milliseconds presence_bound(250);
constexpr std::chrono::milliseconds look_bound(1000);
// A module that has answered a transfer is there until the next poll, which is five seconds away,
// and a pass over all ports, tells otherwise.
constexpr std::chrono::seconds trusted_for(7);

constexpr std::chrono::seconds glimpsed_busy_after(1);

std::optional<presence_line> make_line(std::filesystem::path file, std::string value) {
  if (file.empty()) return std::nullopt;
  return presence_line(std::move(file), std::move(value));
}

std::optional<control_line> make_control_line(line_description line) {
  if (line.file.empty()) return std::nullopt;
  return control_line(std::move(line));
}

std::optional<line_status> status_of(const std::optional<control_line> &line) {
  if (!line) return std::nullopt;
  return line->read();
}

constexpr const char *in_reset = "the module is held in reset";

// Of a module that does not answer, although its presence line says that it is there.
std::string why_silent(module_memory &memory) {
  if (const cerrno code = memory.place_code()) {
    return memory.place() +
           " cannot be reached: " + std::generic_category().message(static_cast<int>(code));
  }
  return "nobody answers, although the presence line says that there is a module";
}

}  // namespace

class module_entry::memory_hold {
 public:
  // Expects the mutex held and the memory free.
  memory_hold(module_entry &entry, lock &held) : entry_(entry), held_(held) {
    entry_.busy_ = true;
    entry_.busy_since_ = clock::now();
  }
  ~memory_hold() {
    if (!held_.owns_lock()) held_.lock();
    entry_.busy_ = false;
    entry_.changed_.notify_all();
  }
  memory_hold(const memory_hold &) = delete;
  memory_hold &operator=(const memory_hold &) = delete;

 private:
  module_entry &entry_;
  lock &held_;
};

module_entry::module_entry(module_placement placement)
    : backend_(placement.backend),
      memory_(std::move(placement.memory)),
      description_(std::move(placement.description)),
      line_(make_line(std::move(placement.presence), std::move(placement.presence_value))),
      reset_(make_control_line(std::move(placement.reset))),
      low_power_(make_control_line(std::move(placement.low_power))) {
  faults_.set(placement.faults);
}

cerrno module_entry::transfer(transfer_kind kind, uint32_t page, uint32_t offset,
                              std::span<uint8_t> bytes) {
  lock held(mutex_);
  changed_.wait(held, [this] { return !busy_ || stopped_; });
  if (stopped_) return module_absent;
  const memory_hold hold(*this, held);
  const clock::time_point started = clock::now();
  ++statistics_.attempted;
  why_.clear();
  const cerrno rc = is_module_place(page, offset, bytes.size())
                        ? carry_out(held, kind, page, offset, bytes)
                        : module_bad_argument;
  count(kind, bytes.size(), rc, started);
  return rc;
}

cerrno module_entry::carry_out(lock &held, transfer_kind kind, uint32_t page, uint32_t offset,
                               std::span<uint8_t> bytes) {
  if (pulled_) {
    if (faults_.met_empty_cage()) put_back();
    return module_absent;
  }
  if (line_ && !there_) return module_absent;
  const transfer_plan plan = faults_.begin(kind);
  cerrno rc = wait_out_faults(held);
  if (rc == module_ok) rc = plan.refusal;
  if (rc == module_ok && kind == transfer_kind::write_byte) {
    rc = access(held, [&] { return memory_->write(page, offset, bytes[0]); });
  } else if (rc == module_ok) {
    std::array<uint8_t, std::size_t{2} * module_page_size> brought;
    const std::span<uint8_t> read = std::span(brought).first(bytes.size());
    rc = access(held, [&] { return memory_->read(page, offset, read); });
    if (rc == module_ok) {
      faults_.spoil(plan, kind, page, offset, read);
      std::copy(read.begin(), read.end(), bytes.begin());
    }
  }
  if (faults_.finished()) pulled_ = true;
  return rc;
}

// Also keeps what the access tells about the module's presence.
cerrno module_entry::access(lock &held, const std::function<cerrno()> &use) {
  held.unlock();
  cerrno rc = use();
  // Asked behind the access: what was read is of this module or of one before it.
  const uint64_t insertion = rc == module_absent ? 0 : memory_->insertion();
  const bool is_held = rc == module_absent && is_in_reset();
  const bool is_silent = rc == module_absent && line_ && !is_held;
  std::string why = is_held ? in_reset : is_silent ? why_silent(*memory_) : memory_->trouble();
  if (is_held || is_silent) rc = module_failing;
  const std::string_view way = memory_->way();
  if (line_ || is_held) {
    held.lock();
    if (!is_held && !is_silent) note_insertion(insertion);
    why_ = std::move(why);
    way_ = way;
    return rc;
  }
  const cerrno place_code = rc == module_absent ? memory_->place_code() : module_ok;
  held.lock();
  why_ = std::move(why);
  way_ = way;
  note(rc != module_absent, insertion, place_code);
  return rc;
}

cerrno module_entry::wait_out_faults(lock &held) {
  const auto is_over = [this] { return stopped_ || pulled_; };
  const auto delay = faults_.script().delay;
  if (delay.count() > 0) changed_.wait_for(held, delay, is_over);
  changed_.wait(held, [&] { return !faults_.script().hang || is_over(); });
  return is_over() ? module_absent : module_ok;
}

module_status module_entry::status() {
  const lock held(mutex_);
  module_status result;
  result.backend = backend_;
  result.location = memory_->location();
  result.way = way_;
  result.present = there_ && !pulled_ && !stopped_;
  if (!stopped_) result.known_at = known_at_;  // afterwards nothing is known of the cage
  result.place_code = pulled_ ? module_ok : place_code_;
  result.place = line_ ? line_->file().native() : memory_->place();
  result.reset = reset_status_;
  result.low_power = low_power_status_;
  if (being_set_) {
    result.line_being_set = being_set_->file().native();
    result.line_set_for =
        std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - set_since_);
  }
  result.pulled = pulled_;
  result.insertion = insertion_;
  if (busy_) {
    result.busy_for =
        std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - busy_since_);
  }
  result.faults = faults_.script();
  result.statistics = statistics_;
  return result;
}

module_glimpse module_entry::glimpse() {
  const lock held(mutex_);
  module_glimpse result;
  result.known = !stopped_ && known_at_ != clock::time_point();
  result.present = there_ && !pulled_ && !stopped_;
  result.busy = busy_ && clock::now() - busy_since_ > glimpsed_busy_after;
  result.place_code = pulled_ ? module_ok : place_code_;
  result.insertion = insertion_;
  result.failed = statistics_.failed;
  result.failed_last = statistics_.last_failure > statistics_.last_success;
  result.way = way_;
  return result;
}

void module_entry::look() {
  if (looking_.exchange(true)) return;
  // Also where it ends for want of memory.
  const std::unique_ptr<std::atomic<bool>, void (*)(std::atomic<bool> *)> mark(
      &looking_, [](std::atomic<bool> *looking) { *looking = false; });
  lock held(mutex_);
  ask_presence(held, true);
}

std::chrono::milliseconds module_entry::unasked_for() {
  const lock held(mutex_);
  if (has_lines() || stopped_ || !has_just_answered()) return std::chrono::milliseconds(0);
  return std::chrono::duration_cast<std::chrono::milliseconds>(statistics_.last_success +
                                                               trusted_for - clock::now());
}

bool module_entry::has_just_answered() const {
  return there_ && !pulled_ && statistics_.last_success > statistics_.last_failure &&
         clock::now() - statistics_.last_success < trusted_for;
}

void module_entry::ask_presence(lock &held, bool trusts_transfers) {
  changed_.wait_for(held, presence_bound, [this] { return !busy_ || stopped_; });
  if (busy_ || stopped_) return;
  const memory_hold hold(*this, held);
  ask_control_lines(held);
  if (line_) return ask_line(held);
  if (trusts_transfers && has_just_answered()) return;
  held.unlock();
  const bool there = memory_->present();
  const uint64_t insertion = there ? memory_->insertion() : 0;
  const cerrno place_code = there ? module_ok : memory_->place_code();
  const bool is_held = !there && is_in_reset();
  const std::string_view way = memory_->way();
  held.lock();
  way_ = way;
  if (!is_held) note(there, insertion, place_code);
}

void module_entry::ask_control_lines(lock &held) {
  if (!reset_ && !low_power_) return;
  held.unlock();
  auto reset = status_of(reset_);
  auto low_power = status_of(low_power_);
  held.lock();
  reset_status_ = std::move(reset);
  low_power_status_ = std::move(low_power);
}

bool module_entry::is_in_reset() const { return reset_ && reset_->read().is_on == true; }

// The file is written without the lock: the line may hang on a bus of its own, and its module's
// transfers may hang until it is let out of reset.
cerrno module_entry::set_line(module_line which, bool on) {
  const bool is_reset = which == module_line::reset;
  const std::optional<control_line> &line = is_reset ? reset_ : low_power_;
  if (!line) return module_unsupported;
  {
    const std::lock_guard held(mutex_);
    being_set_ = &*line;
    set_since_ = clock::now();
  }
  const bool was_on = line->read().is_on == true;
  const cerrno rc = line->set(on);
  line_status now = line->read();
  const std::lock_guard held(mutex_);
  if (being_set_ == &*line) being_set_ = nullptr;
  (is_reset ? reset_status_ : low_power_status_) = std::move(now);
  if (is_reset && was_on && !on && rc == module_ok) {
    ++insertion_;
    faults_.forget();
  }
  return rc;
}

void module_entry::ask_line(lock &held) {
  held.unlock();
  const presence_reading now = line_->read();
  const uint64_t insertion = now.there ? memory_->insertion() : 0;
  held.lock();
  note(now.there, insertion, now.code);
}

// A module that has come is a new insertion.
void module_entry::note(bool there, uint64_t insertion, cerrno place_code) {
  if (there && !there_) count_insertion();
  if (there && there_) note_insertion(insertion);
  there_ = there;
  place_code_ = place_code;
  known_at_ = clock::now();
  memory_insertion_ = insertion;
}

// Another one in the place of the one known is one too.
void module_entry::note_insertion(uint64_t insertion) {
  if (insertion != memory_insertion_) count_insertion();
  memory_insertion_ = insertion;
}

void module_entry::count_insertion() {
  ++insertion_;
  faults_.forget();
}

void module_entry::set_faults(const fault_script &faults) {
  const std::lock_guard held(mutex_);
  faults_.set(faults);
  changed_.notify_all();
}

void module_entry::release() {
  const std::lock_guard held(mutex_);
  faults_.release();
  changed_.notify_all();
}

void module_entry::remove() {
  const std::lock_guard held(mutex_);
  pulled_ = true;
  changed_.notify_all();
}

cerrno module_entry::insert() {
  {
    lock held(mutex_);
    ask_presence(held, false);
    if (pulled_) put_back();
    if (there_ || backend_ != module_backend::simulated || description_.empty()) {
      return there_ ? module_ok : module_none;
    }
  }
  std::string error;
  return insert(description_, error);
}

cerrno module_entry::insert(const std::filesystem::path &description, std::string &error) {
  if (backend_ != module_backend::simulated) {
    error = "only a simulated module can be replaced";
    return module_unsupported;
  }
  std::error_code code;
  const bool is_there = std::filesystem::exists(description, code);
  const image_result result = read_module_image(description);
  if (!result.image) {
    for (const auto &problem : result.problems) {
      if (!error.empty()) error += '\n';
      error += to_string(problem);
    }
    return is_there ? module_bad_argument : module_none;
  }
  lock held(mutex_);
  const cerrno rc = wait_for_memory(held);
  if (rc != module_ok) {
    error = rc == module_busy ? "the module's transfer under way does not end" : "stopped";
    return rc;
  }
  const memory_hold hold(*this, held);
  memory_->replace(*result.image);
  pulled_ = false;
  faults_.set(result.image->faults);
  note(true, memory_->insertion());
  return module_ok;
}

void module_entry::put_back() {
  pulled_ = false;
  count_insertion();
}

cerrno module_entry::peek(uint32_t page, uint32_t offset, std::span<uint8_t> out,
                          std::string *why) {
  if (!is_module_place(page, offset, out.size())) return module_bad_argument;
  return with_memory([&] { return memory_->read(page, offset, out); }, why);
}

cerrno module_entry::poke(uint32_t page, uint32_t offset, uint8_t value) {
  if (!is_module_place(page, offset, 1)) return module_bad_argument;
  return with_memory([&] { return memory_->write(page, offset, value); }, nullptr);
}

cerrno module_entry::with_memory(const std::function<cerrno()> &use, std::string *why) {
  lock held(mutex_);
  const cerrno rc = wait_for_memory(held);
  if (rc != module_ok) return rc;
  if (pulled_) return module_absent;
  const memory_hold hold(*this, held);
  const cerrno done = access(held, use);
  if (why) *why = why_;
  return done;
}

cerrno module_entry::wait_for_memory(lock &held) {
  changed_.wait_for(held, look_bound, [this] { return !busy_ || stopped_; });
  if (stopped_) return module_absent;
  return busy_ ? module_busy : module_ok;
}

void module_entry::stop() {
  const std::lock_guard held(mutex_);
  stopped_ = true;
  changed_.notify_all();
}

void module_entry::count(transfer_kind kind, std::size_t bytes, cerrno rc,
                         clock::time_point started) {
  const clock::time_point now = clock::now();
  statistics_.last_duration = std::chrono::duration_cast<std::chrono::microseconds>(now - started);
  if (rc != module_ok) {
    ++statistics_.failed;
    statistics_.last_error = rc;
    statistics_.last_reason = why_;
    statistics_.last_failure = now;
    return;
  }
  statistics_.last_success = now;
  (kind == transfer_kind::write_byte ? statistics_.bytes_written : statistics_.bytes_read) += bytes;
}

}  // namespace lum_linux
