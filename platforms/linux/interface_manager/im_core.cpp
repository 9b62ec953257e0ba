#include "interface_manager/im_core.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "lum.h"
#include "services/signals_blocked.h"

namespace lum_linux {

interface_manager::core::core(const im_options &options)
    : controllers(options.handle_base),
      delay_min(options.delay_min),
      delay_max(std::max(options.delay_min, options.delay_max)),
      random(options.seed),
      out_of_order(options.out_of_order) {}

// Joinable only when the manager was destroyed on its own thread.
interface_manager::core::~core() {
  if (thread_.joinable()) thread_.detach();
}

void interface_manager::core::start() {
  const std::lock_guard lock(mutex);
  const signals_blocked until_started;
  thread_ = std::thread([self = shared_from_this()] { self->run(); });
  thread_id_ = thread_.get_id();
}

bool interface_manager::core::stop(milliseconds bound) {
  std::thread ended;
  std::unique_lock lock(mutex);
  stopping_ = true;
  changed.notify_all();
  if (on_own_thread()) return true;
  const bool in_time = changed.wait_for(lock, bound, [this] { return finished_; });
  std::swap(ended, thread_);
  lock.unlock();
  if (ended.joinable()) in_time ? ended.join() : ended.detach();
  return in_time;
}

interface_manager::account *&interface_manager::core::account_of_this_thread() {
  thread_local account *mine = nullptr;
  return mine;
}

cerrno interface_manager::core::accept(im_batch batch) {
  if (account_of_this_thread() != nullptr) {
    batch.report = std::make_shared<im_batch_report>();
    batch.report->count = batch.count;
    refused(batch, ENOMEM);  // until it has been accepted
  }
  {
    const std::lock_guard lock(mutex);
    if (batch.report) account_of_this_thread()->batches_.push_back(batch.report);
    if (stopping_) return refused(batch, ESHUTDOWN);
    if (refuse.take()) {
      ++statistics.refused;
      return refused(batch, refuse_code);
    }
    std::uniform_int_distribution<int64_t> delay(delay_min.count(), delay_max.count());
    batch.sequence = last_sequence_ + 1;
    batch.due = im_clock::now() + milliseconds(delay(random));
    const uint32_t count = batch.count;
    const uint32_t operation = batch.operation;
    const auto report = batch.report;
    const bool is_kept = decide_fate(batch);
    if (is_kept) waiting_.push_back(std::move(batch));
    if (!is_kept) ++statistics.dropped;
    if (report) report->state = is_kept ? im_batch_state::waiting : im_batch_state::dropped;
    if (report) report->code = 0;
    ++last_sequence_;
    statistics.elements += count;
    ++(operation == LUM_IM_CREATE   ? statistics.create_batches
       : operation == LUM_IM_DELETE ? statistics.delete_batches
                                    : statistics.update_batches);
    statistics.pending = waiting_.size() + running_;
  }
  changed.notify_all();
  return 0;
}

// Expects the lock held.
cerrno interface_manager::core::refused(const im_batch &batch, cerrno code) {
  if (batch.report) batch.report->state = im_batch_state::refused;
  if (batch.report) batch.report->code = code;
  return code;
}

// Returns false for a batch that is to be dropped.
bool interface_manager::core::decide_fate(im_batch &batch) {
  if (drop.take()) return false;
  if (fail.take()) {
    batch.fate.whole = fail_code;
  } else if (empty.take()) {
    batch.fate.empty = true;
  } else if (batch.operation == LUM_IM_CREATE && malform.take()) {
    batch.fate.malformation = malformation;
  }
  return true;
}

bool interface_manager::core::restart(pending what, milliseconds bound) {
  std::unique_lock lock(mutex);
  if (what == pending::drop || finished_) {
    drop_waiting();
    forget_all();
    lock.unlock();
    changed.notify_all();
    return true;
  }
  restart_wanted_ = true;
  flush_up_to_ = last_sequence_;
  const uint64_t before = statistics.restarts;
  changed.notify_all();
  if (on_own_thread()) return true;
  return changed.wait_for(lock, bound, [&] { return statistics.restarts != before || finished_; });
}

void interface_manager::core::drop_waiting() {
  for (const im_batch &batch : waiting_) {
    if (batch.report) batch.report->state = im_batch_state::dropped;
  }
  statistics.dropped += waiting_.size();
  waiting_.clear();
}

void interface_manager::core::forget_all() {
  controllers.forget();
  restart_wanted_ = false;
  flush_up_to_ = 0;
  ++statistics.restarts;
  statistics.pending = waiting_.size() + running_;
}

bool interface_manager::core::wait_idle(milliseconds bound) {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, bound, [this] { return waiting_.empty() && running_ == 0; });
}

void interface_manager::core::run() {
  pthread_setname_np(pthread_self(), "lum_im");
  std::unique_lock lock(mutex);
  while (!stopping_) {
    if (restart_wanted_ && (waiting_.empty() || waiting_.front().sequence > flush_up_to_)) {
      forget_all();
      changed.notify_all();
    }
    std::optional<im_clock::time_point> wake;
    const auto chosen = choose(im_clock::now(), wake);
    if (chosen != waiting_.end()) {
      answer(lock, chosen);
    } else if (wake) {
      changed.wait_until(lock, *wake);
    } else {
      changed.wait(lock);
    }
  }
  drop_waiting();
  statistics.pending = 0;
  finished_ = true;
  changed.notify_all();
}

// Returns the batch to answer now, or none and, where it is known, the time to look again.
interface_manager::core::queue::iterator interface_manager::core::choose(
    im_clock::time_point now, std::optional<im_clock::time_point> &wake) {
  if (waiting_.empty()) return waiting_.end();
  if (restart_wanted_ && waiting_.front().sequence <= flush_up_to_) return waiting_.begin();
  if (held) return waiting_.end();
  if (!out_of_order) {
    if (waiting_.front().due <= now) return waiting_.begin();
    wake = waiting_.front().due;
    return waiting_.end();
  }
  const auto first_due =
      std::min_element(waiting_.begin(), waiting_.end(),
                       [](const im_batch &a, const im_batch &b) { return a.due < b.due; });
  if (first_due->due + window > now) {
    wake = first_due->due + window;
    return waiting_.end();
  }
  const auto newest_due = std::find_if(waiting_.rbegin(), waiting_.rend(),
                                       [now](const im_batch &batch) { return batch.due <= now; });
  return std::prev(newest_due.base());
}

// Carries the batch out with the lock held and completes it without.
void interface_manager::core::answer(std::unique_lock<std::mutex> &lock,
                                     const queue::iterator &chosen) {
  im_batch batch = std::move(*chosen);
  waiting_.erase(chosen);
  ++running_;
  name_elements(batch);
  try {
    carry_out(batch);
  } catch (const std::bad_alloc &) {
    fail_without_memory(batch);
  }
  if (batch.report) batch.report->state = im_batch_state::completing;
  lock.unlock();
  batch.complete(batch.reply->record(), batch.context);
  batch.reply.reset();
  lock.lock();
  if (batch.report) batch.report->state = im_batch_state::answered;
  --running_;
  ++statistics.answered;
  statistics.pending = waiting_.size() + running_;
  changed.notify_all();
}

void interface_manager::core::name_elements(im_batch &batch) const {
  for (uint32_t i = 0; i < batch.count; ++i) {
    if (batch.operation == LUM_IM_UPDATE) {
      if (const im_controller *known = controllers.find(batch.handles[i])) {
        batch.reply->set_name(i, known->name);
      }
    } else if (batch.names[i]) {
      batch.reply->set_name(i, *batch.names[i]);
    }
  }
}

// Throws std::bad_alloc when there is no memory for a creation; nothing else needs any.
void interface_manager::core::carry_out(im_batch &batch) {
  if (batch.report) batch.report->code = batch.fate.whole;
  if (batch.report) batch.report->empty = batch.fate.empty;
  batch.reply->set_batch_error(batch.fate.whole);
  if (batch.fate.empty) batch.reply->set_empty();
  if (batch.fate.empty || batch.fate.whole != 0) return;
  uint32_t failed = 0;
  for (uint32_t i = 0; i < batch.count; ++i) {
    const cerrno result = batch.operation == LUM_IM_UPDATE ? update_element(batch, i)
                                                           : create_or_delete_element(batch, i);
    batch.reply->set_result(i, result);
    if (result == 0) continue;
    ++failed;
    note_failure(batch, i, result);
  }
  statistics.failed_elements += failed;
}

// An empty trailing element is nobody's failure. Without memory for it the code alone is kept.
void interface_manager::core::note_failure(const im_batch &batch, uint32_t element, cerrno code) {
  if (!batch.report || code == LUM_IM_ELEMENT_BENIGN) return;
  if (batch.report->code == 0) batch.report->code = code;
  const char *const name = batch.reply->record()->names[element];
  try {
    batch.report->failed.push_back({name != nullptr ? name : "", code});
  } catch (const std::bad_alloc &) {
  }
}

// A failed element is not carried out: what the batch has created so far goes again.
void interface_manager::core::fail_without_memory(im_batch &batch) {
  for (const uint32_t element : batch.created) controllers.remove(*batch.names[element]);
  batch.reply->fail_all(ENOMEM);
  if (batch.report) batch.report->code = ENOMEM;
  statistics.failed_elements += batch.count;
}

cerrno interface_manager::core::update_element(im_batch &batch, uint32_t element) {
  const uint32_t handle = batch.handles[element];
  const uint8_t *payload = &batch.payload[size_t{element} * LUM_UPDATE_ELEMENT_SIZE];
  batch.reply->set_handle(element, handle);
  const im_controller *known = controllers.find(handle);
  if (!known) return ENOENT;
  if (const cerrno fault = element_fault(known->name)) return fault;
  std::optional<uint32_t> state;
  if (payload[1] & 1) state = payload[0];
  controllers.update(handle, state);
  return 0;
}

cerrno interface_manager::core::create_or_delete_element(im_batch &batch, uint32_t element) {
  const auto &name = batch.names[element];
  if (!name) return LUM_IM_ELEMENT_BENIGN;
  if (const cerrno fault = element_fault(*name)) return fault;
  if (batch.operation == LUM_IM_DELETE) return controllers.remove(*name) ? 0 : ENOENT;
  const auto created = controllers.create(*name);
  if (created.is_new) batch.created.push_back(element);
  batch.reply->set_create_data(element, created.handle, batch.fate.malformation);
  return 0;
}

cerrno interface_manager::core::element_fault(const std::string &name) {
  const auto found = elements.names.find(name);
  if (elements.nth != 0 && ++elements.counted % elements.nth == 0) return elements.nth_code;
  return found == elements.names.end() ? 0 : found->second;
}

}  // namespace lum_linux
