#include "script.h"

#include <atomic>
#include <cerrno>

namespace support {

static constinit std::atomic<bool> any_rule{false};

script_book &script = *new script_book;

void script_book::fail(std::string_view call, unsigned nth, cerrno code, const void *object) {
  add({std::string(call), nth, code, object, 0});
}

void script_book::fail_with_errno(std::string_view call, unsigned nth, cerrno code, int error) {
  add({std::string(call), nth, code, nullptr, error});
}

void script_book::fail_first(std::string_view call, unsigned count, cerrno code,
                             const void *object) {
  for (unsigned nth = 1; nth <= count; ++nth) fail(call, nth, code, object);
}

void script_book::fail_always(std::string_view call, cerrno code, const void *object) {
  fail(call, 0, code, object);
}

void script_book::fail_any(unsigned nth, cerrno code, how_long lasts) {
  const std::lock_guard hold(lock_);
  nth_of_any_ = nth;
  seen_of_any_ = 0;
  code_of_any_ = code;
  any_lasts_ = lasts;
  failed_of_any_.clear();
  any_rule.store(true);
}

void script_book::forget() {
  const std::lock_guard hold(lock_);
  rules_.clear();
  nth_of_any_ = 0;
}

// The library tries a mutex before it waits for it; a waiting without that is another's, such as
// the test program's own.
static bool may_fail(std::string_view call, const void *object) {
  static thread_local const void *tried = nullptr;
  if (call == "pthread_mutex_trylock") tried = object;
  if (call == "pthread_mutex_lock") return object == tried;
  return call != "pthread_mutex_unlock" && !call.starts_with("wavl_delete");
}

std::optional<cerrno> script_book::verdict(std::string_view call, const void *object) {
  const std::lock_guard hold(lock_);
  if (nth_of_any_ != 0 && may_fail(call, object) && ++seen_of_any_ >= nth_of_any_) {
    if (seen_of_any_ == nth_of_any_ || any_lasts_ == how_long::from_then_on) {
      failed_of_any_.emplace_back(call);
      return code_of_any_;
    }
  }
  const rule *met = nullptr;
  for (rule &each : rules_) {
    if (each.call != call || (each.object != nullptr && each.object != object)) continue;
    ++each.seen;
    if (met == nullptr && (each.nth == 0 || each.nth == each.seen)) met = &each;
  }
  if (met == nullptr) return std::nullopt;
  if (met->error != 0) errno = met->error;
  return met->code;
}

void script_book::add(rule added) {
  const std::lock_guard hold(lock_);
  rules_.push_back(std::move(added));
  any_rule.store(true);
}

std::optional<cerrno> planned(std::string_view call, const void *object) {
  if (!any_rule.load(std::memory_order_relaxed)) return std::nullopt;
  return script.verdict(call, object);
}

}  // namespace support
