// How the checkpoint service comes by its store, does without it, and lets go of it.
#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

#include "lum_linux/disks.h"
#include "lum_linux/system.h"
#include "services/checkpoint_service.h"

namespace lum_linux {
namespace {

// How long another process may hold the store: one that is just ending, at the start.
constexpr std::chrono::milliseconds patience_at_start(2000);
constexpr std::chrono::milliseconds no_patience(0);

// How long the store may take to open before the node goes on without it.
constexpr std::chrono::milliseconds bound_of_opening(5000);

constexpr const char *not_started = "the store has not been opened yet";

// One line to the system log and to whoever watches the process.
void report(std::string line) {
  std::replace(line.begin(), line.end(), '\n', ' ');
  system_log(line);
  say_line(line + '\n');
}

checkpoint_store::opened open_in_folder(const std::filesystem::path &file, const store_owner &owner,
                                        std::chrono::milliseconds patience) {
  std::error_code error;
  std::filesystem::create_directories(file.parent_path(), error);
  if (!error) return checkpoint_store::open(file, owner, patience);
  checkpoint_store::opened none;
  none.code = static_cast<cerrno>(error.value());
  none.failure = "there is no folder " + file.parent_path().string();
  return none;
}

std::string join(const std::string &text, cerrno code) {
  const std::string of_code = cerr_strerror(code);
  return text.empty() || text == of_code ? of_code : of_code + " (" + text + ")";
}

}  // namespace

cerrno checkpoint_service::set_file(const std::filesystem::path &file) {
  if (owner_) return EBUSY;
  file_ = std::filesystem::absolute(file);
  now_ = {};
  now_.file = file_;
  now_.reason = not_started;
  troubles_.clear();
  return 0;
}

cerrno checkpoint_service::start(const store_owner &owner) {
  if (file_.empty()) return ENOENT;
  now_ = {};
  now_.file = file_;
  troubles_.clear();
  owner_ = owner;
  open_store(patience_at_start);
  return 0;
}

// What is still owed is tried once more, and told when it is lost with the process. Without memory
// for that the store is closed all the same, so that the next start finds it free.
void checkpoint_service::close() {
  bool is_settled = true;
  try {
    settle_deletions();
  } catch (const std::bad_alloc &) {
    is_settled = false;
  }
  troubles_.clear();
  store_.reset();
  coming_.reset();
  owner_.reset();
  tables_.clear();
  iterators_.clear();
  now_.open = false;
  now_.reason = "the store has been closed";
  if (!is_settled) report("checkpoint store: no memory to finish its deletions");
}

void checkpoint_service::settle_deletions() {
  if (store_ != nullptr) finish_deletions();
  for (const auto &[at, reason] : troubles_) {
    if (owner_ && at.second == record_trouble::undeleted) tell(name_of(at.first) + ": " + reason);
  }
}

cerrno checkpoint_service::tend() {
  if (!owner_) return 0;
  if (store_ == nullptr || store_->is_read_only()) return open_store(no_patience);
  renew_log();
  if (store_ == nullptr) return code_;
  finish_deletions();
  judge_writing(now_.reason.empty() ? store_->look_for_files() : store_->try_writing());
  return count(store_->tend());
}

// Ahead of a change: what goes into a log that was taken away is lost with it.
void checkpoint_service::renew_log() {
  if (store_ == nullptr || store_->is_read_only() || !store_->leave_lost_log()) return;
  tell("its write-ahead log was taken away or cut short; nothing is lost, it gets another");
  open_store(no_patience);
}

// A store that can only be read is let go of: SQLite's locks go with any descriptor of a file. One
// whose disk does not answer is taken when it has come, and not asked for again until then.
cerrno checkpoint_service::open_store(std::chrono::milliseconds patience) {
  try {
    store_.reset();
    if (coming_ == nullptr && !folder_is_waited_for(file_.parent_path())) ask_for_store(patience);
    if (coming_ == nullptr || !coming_->has_come) {
      return go_without(EIO, "the disk of " + file_.parent_path().string() + " does not answer");
    }
    const auto come = std::exchange(coming_, nullptr);
    return take(std::move(come->result));
  } catch (const std::bad_alloc &) {
    return go_without(ENOMEM, "");
  }
}

void checkpoint_service::ask_for_store(std::chrono::milliseconds patience) {
  coming_ = std::make_shared<coming_store>();
  const auto ask = [to = coming_, file = file_, owner = *owner_, patience] {
    try {
      to->result = open_in_folder(file, owner, patience);
    } catch (const std::bad_alloc &) {
      to->result.code = ENOMEM;
    }
    to->has_come = true;
  };
  try {
    ends_within(bound_of_opening, ask);
  } catch (const std::system_error &) {
    ask();  // without a thread it waits for as long as it takes
  } catch (const std::bad_alloc &) {
    coming_ = nullptr;
    throw;
  }
}

cerrno checkpoint_service::take(checkpoint_store::opened opened) {
  if (!opened.set_aside.empty()) {
    now_.set_aside = opened.set_aside;
    now_.set_aside_reason = opened.set_aside_reason;
    tell("it cannot be used (" + opened.set_aside_reason + "), set aside as " +
         opened.set_aside.string());
  }
  if (opened.code != 0) return go_without(opened.code, opened.failure);
  const bool was_open = now_.open;  // to be read
  const bool is_late = !was_open && !now_.reason.empty();
  store_ = std::move(opened.store);
  for (const std::string &note : opened.notes) {
    if (!was_open || !store_->is_read_only()) tell(note);
  }
  tell_of_lost(opened.lost);
  for (auto &[handle, t] : tables_) {
    std::vector<lost_record> lost;
    bool found = false;
    cerrno rc = store_->add_table(t.kind, t.version, t.persistent, found, lost);
    if (rc == 0 && !was_open) rc = store_->clear_table(t.kind, t.persistent);
    if (rc != 0) return go_without(rc, store_->failure_text());
    tell_of_lost(lost);
  }
  now_.open = true;
  if (!was_open) now_.reason.clear();
  now_.entries = store_->entries();
  if (is_late) tell("it is open");
  judge_writing(store_->try_writing());
  for (const record_key &record : opened.undeleted) owe_deletion(record);
  finish_deletions();
  settle_unread();
  return 0;
}

// The node runs on, and nothing is kept. Told once for each reason. Without memory to tell it there
// is no store either.
cerrno checkpoint_service::go_without(cerrno code, const std::string &reason) {
  const auto released = std::move(store_);  // the reason may be its own
  now_.open = false;
  now_.entries = 0;
  ++now_.failures;
  code_ = is_about_record(code) ? static_cast<cerrno>(EIO) : code;
  const std::string text = join(reason, code);
  now_.last_failure = text;
  if (std::exchange(now_.reason, text) != text) {
    tell("it cannot be opened and is left as it is: " + text + "; nothing is kept until it can");
  }
  return code_;
}

// The store is open; `rc` says how the latest change fared.
void checkpoint_service::judge_writing(cerrno rc) {
  if (is_about_record(rc)) return;
  const std::string text = rc == 0 ? "" : join(store_->failure_text(), rc);
  if (std::exchange(now_.reason, text) == text) return;
  tell(rc == 0 ? "it takes changes again" : "it takes no changes, nothing is kept: " + text);
}

// Of the records that were asked for in vain some do not exist.
void checkpoint_service::settle_unread() {
  for (auto at = troubles_.begin(); at != troubles_.end();) {
    const auto &[record, what] = at->first;
    uint64_t id = 0;
    const bool is_settled =
        what == record_trouble::unread && store_->find(record.kind, record.key, id) == ENOENT;
    if (what == record_trouble::unread && !is_settled) {
      tell(name_of(record) + " comes back at the next start only: " + at->second);
    }
    at = is_settled ? troubles_.erase(at) : std::next(at);
  }
}

void checkpoint_service::tell(const std::string &what) const {
  report("checkpoint store " + file_.string() + ": " + what);
}

// Each record that was lost has its line.
void checkpoint_service::tell_of_lost(const std::vector<lost_record> &all) {
  for (const lost_record &one : all) {
    if (has(record_trouble::lost, one.record)) continue;
    trouble(record_trouble::lost, one.record, one.reason);
    tell(name_of(one.record) + " is lost: " + one.reason);
  }
}

void checkpoint_service::publish() {
  now_.usable = now_.open && now_.reason.empty();
  now_.doubt = store_ == nullptr ? "" : store_->journal_failure();
  now_.troubled.clear();
  for (const auto &[at, reason] : troubles_) {
    now_.troubled.push_back({at.second, at.first.kind, at.first.key, reason});
  }
  const std::lock_guard hold(status_lock_);
  published_ = now_;
}

checkpoint_status checkpoint_service::status() const {
  const std::lock_guard hold(status_lock_);
  return published_;
}

cerrno checkpoints_set_path(const std::filesystem::path &file) {
  if (file.empty()) return EINVAL;
  return the_checkpoint_service().guarded([&](auto &service) { return service.set_file(file); });
}

void checkpoints_close() {
  the_checkpoint_service().guarded([](auto &service) -> cerrno {
    service.close();
    return 0;
  });
}

void checkpoints_tend() {
  the_checkpoint_service().guarded([](auto &service) { return service.tend(); });
}

checkpoint_look checkpoints_look(uint64_t table, uint32_t key, std::span<std::byte> record) {
  checkpoint_look result;
  const cerrno rc = the_checkpoint_service().guarded([&](auto &service) -> cerrno {
    const auto *known = service.table_of(table);
    if (known == nullptr) return EINVAL;
    result = service.look(*known, key, record);
    return 0;
  });
  if (rc != 0) result = {false, false, cerr_strerror(rc)};
  return result;
}

checkpoint_status checkpoints_status() { return the_checkpoint_service().status(); }

}  // namespace lum_linux
