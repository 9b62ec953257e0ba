// Thread ids, the system log and standard error, deadlock-monitor marks, bounded copies and error
// texts.
#include "lum_linux/system.h"

#include <poll.h>
#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>

#include "bounded_copy.h"
#include "cerr.h"
#include "chkpt.h"
#include "lum_linux/outlet.h"
#include "ptd.h"
#include "services/immortal.h"
#include "tern.h"

namespace {

// ---- Thread ids

thread_local int32_t cached_tid = 0;

// A forked child's thread has an id of its own.
const int forget_tid_in_child = pthread_atfork(nullptr, nullptr, [] { cached_tid = 0; });

// ---- System log

struct log_outlet {
  std::mutex lock;
  std::function<void(std::string_view)> sink;
};

log_outlet &outlet() {
  static lum_linux::immortal<log_outlet> the_outlet;
  return *the_outlet;
}

constexpr std::string_view log_socket = "/dev/log";

// In the form of syslog(3), which itself waits for as long as nobody reads the log.
void send_to_log(int priority, std::string_view line) {
  constexpr std::chrono::milliseconds patience(200);
  constexpr std::array<const char *, 12> months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  if ((priority & LOG_FACMASK) == 0) priority |= LOG_USER;
  const std::time_t now = std::time(nullptr);
  std::tm local = {};
  ::localtime_r(&now, &local);
  std::array<char, 2048> text;
  const int length = std::snprintf(
      text.data(), text.size(), "<%d>%s %2d %02d:%02d:%02d %s: %.*s", priority,
      months[static_cast<std::size_t>(local.tm_mon)], local.tm_mday, local.tm_hour, local.tm_min,
      local.tm_sec, program_invocation_short_name, static_cast<int>(line.size()), line.data());
  if (length < 0) return;
  const auto whole = std::min(static_cast<std::size_t>(length), text.size() - 1);
  lum_linux::send_within(patience, log_socket, {text.data(), whole});
}

void write_log(int priority, std::string_view line) {
  while (!line.empty() && line.back() == '\n') line.remove_suffix(1);
  {
    const std::lock_guard hold(outlet().lock);
    if (outlet().sink) {
      outlet().sink(line);
      return;
    }
  }
  send_to_log(priority, line);
}

// ---- Deadlock-monitor marks

// One per waiting thread, taken with the thread's first mark and given back at its end, or with its
// last mark when there is no memory for being told of the end. Only its thread and a lister take
// the lock, each for the time of a copy.
struct mark_slot {
  std::mutex lock;
  bool owned = false;
  pthread_mutex_t *mutex = nullptr;  // null: not waiting
  int32_t tid = 0;
  std::array<char, 64> function{};
  uint32_t line = 0;
  std::chrono::steady_clock::time_point since;
};

// Threads beyond these many at a time are not listed.
constexpr std::size_t mark_slots = 512;

std::array<mark_slot, mark_slots> &marks() {
  static lum_linux::immortal<std::array<mark_slot, mark_slots>> the_marks;
  return *the_marks;
}

mark_slot *take_slot() {
  for (mark_slot &slot : marks()) {
    const std::lock_guard hold(slot.lock);
    if (slot.owned) continue;
    slot.owned = true;
    return &slot;
  }
  return nullptr;
}

// Not an object with a destructor: a thread that has no memory for registering one ends the
// process.
struct thread_mark {
  mark_slot *slot = nullptr;
  bool is_kept = false;  // until the thread ends
};
thread_local thread_mark this_mark;

void give_slot_back() {
  {
    const std::lock_guard hold(this_mark.slot->lock);
    this_mark.slot->owned = false;
    this_mark.slot->mutex = nullptr;
  }
  this_mark = {};
}

class end_of_threads {
 public:
  end_of_threads() : is_told_(pthread_key_create(&key_, [](void *) { give_slot_back(); }) == 0) {}
  bool await(mark_slot *slot) const { return is_told_ && pthread_setspecific(key_, slot) == 0; }

 private:
  pthread_key_t key_ = 0;
  bool is_told_;
};
const end_of_threads threads_end;

}  // namespace

int32_t tern_gettid(void) {
  if (cached_tid == 0) cached_tid = gettid();
  return cached_tid;
}

// A facility without a level is that of an error: the library logs nothing less.
void tern_syslog(int32_t facility, const char *format, ...) {
  if (format == nullptr) return;
  std::array<char, 1024> line;
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
  if (length < 0) return;
  write_log((facility & LOG_PRIMASK) == 0 ? facility | LOG_ERR : facility, line.data());
}

void ptd_set_mutex_block(pthread_mutex_t *mutex, const char *function, uint32_t line) {
  if (this_mark.slot == nullptr) {
    mark_slot *const taken = take_slot();
    this_mark = {taken, taken != nullptr && threads_end.await(taken)};
  }
  mark_slot *const slot = this_mark.slot;
  if (slot == nullptr) return;
  const std::lock_guard hold(slot->lock);
  slot->mutex = mutex;
  slot->tid = tern_gettid();
  slot->line = line;
  slot->since = std::chrono::steady_clock::now();
  std::snprintf(slot->function.data(), slot->function.size(), "%s",
                function == nullptr ? "" : function);
}

void ptd_unset_mutex_block(pthread_mutex_t *mutex) {
  mark_slot *const slot = this_mark.slot;
  if (slot == nullptr) return;
  {
    const std::lock_guard hold(slot->lock);
    if (slot->mutex == mutex) slot->mutex = nullptr;
    if (slot->mutex != nullptr || this_mark.is_kept) return;
  }
  give_slot_back();
}

cerrno strncpy_s(char *destination, size_t size, const char *source, size_t count) {
  if (destination == nullptr || size == 0) return EINVAL;
  destination[0] = '\0';
  if (source == nullptr || count >= size) return EINVAL;
  const size_t length = strnlen(source, count);
  std::memmove(destination, source, length);
  destination[length] = '\0';
  return 0;
}

const char *cerr_strerror(cerrno rc) {
  switch (rc) {
    case CHKPT_ALREADY_INITIALISED:
      return "Checkpoint service already initialised";
    case 0x809A4200u:
      return "Interface already as requested";
    case 0xFFFFFFFFu:
      return "Not found";
    default:
      break;
  }
  if (rc <= 0xFFFF) {
    if (const char *text = strerrordesc_np(static_cast<int>(rc))) return text;
  }
  thread_local std::array<char, 24> text;
  std::snprintf(text.data(), text.size(), "error 0x%x", rc);
  return text.data();
}

namespace lum_linux {

void system_log_set_sink(std::function<void(std::string_view)> sink) {
  const std::lock_guard hold(outlet().lock);
  outlet().sink.swap(sink);
}

void system_log(std::string_view line) { write_log(LOG_ERR, line); }

// What a pipe takes at once it takes without waiting, once it says that it takes anything.
void say_line(std::string_view line) {
  constexpr int patience_ms = 200;
  pollfd sink = {STDERR_FILENO, POLLOUT, 0};
  if (::poll(&sink, 1, patience_ms) != 1 || (sink.revents & POLLOUT) == 0) return;
  [[maybe_unused]] const ssize_t written =
      ::write(STDERR_FILENO, line.data(), std::min<std::size_t>(line.size(), PIPE_BUF));
}

std::vector<blocked_thread> blocked_threads() {
  std::vector<blocked_thread> waiting;
  for (mark_slot &slot : marks()) {
    const std::lock_guard hold(slot.lock);
    if (slot.mutex == nullptr) continue;
    waiting.push_back({slot.tid, slot.function.data(), slot.line, slot.mutex, slot.since});
  }
  std::sort(waiting.begin(), waiting.end(),
            [](const auto &a, const auto &b) { return a.since < b.since; });
  return waiting;
}

}  // namespace lum_linux
