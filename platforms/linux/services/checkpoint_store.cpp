#include "services/checkpoint_store.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "services/store_connection.h"

namespace lum_linux {

checkpoint_store::~checkpoint_store() {
  if (connection_ == nullptr) return;
  try {
    note_the_unnoted();
  } catch (const std::bad_alloc &) {
    // They stay unnoted, and the journal open, from which the next process sees it.
  }
  if (is_for_writing_ && unmerged_ && look_for_log() == log_state::cut) connection_->leave_log();
  connection_.reset();
  if (unnoted_.empty()) journal_.close();
}

cerrno checkpoint_store::add_table(uint32_t kind, uint32_t version, bool persistent, bool &found,
                                   std::vector<lost_record> &lost) {
  bool there = false;
  const cerrno rc = attempt([&]() -> cerrno {
    there = use(connection_->prepared->has_table, kind)->executeStep();
    if (there) return 0;
    sync_commits(true);
    unmerged_ = true;
    use(connection_->prepared->add_table, kind)->exec();
    return 0;
  });
  if (rc != 0) return rc;
  if (persistent) persistent_.insert(kind);
  found = there && persistent;
  return attempt([&]() -> cerrno {
    const use other(connection_->prepared->of_other_version, kind, version);
    while (other->executeStep()) {
      lost.push_back({{kind, static_cast<uint32_t>(other.number(0))},
                      "it is of version " + std::to_string(other.number(1)) + ", not " +
                          std::to_string(version)});
    }
    return 0;
  });
}

cerrno checkpoint_store::clear_table(uint32_t kind, bool persistent) {
  const cerrno cleared = attempt([&]() -> cerrno {
    store_statements &prepared = *connection_->prepared;
    sync_commits(true);
    unmerged_ = true;
    use(persistent ? prepared.clear_empty : prepared.clear_table, kind)->exec();
    return 0;
  });
  // Entries without data do no harm, so a full disk need not stop the others from being read.
  return persistent ? 0 : cleared;
}

cerrno checkpoint_store::find(uint32_t kind, uint32_t key, uint64_t &id) {
  return attempt([&]() -> cerrno {
    const use find(connection_->prepared->find, kind, key);
    if (!find->executeStep()) return ENOENT;
    id = find.number(0);
    return 0;
  });
}

cerrno checkpoint_store::key_of(uint32_t kind, uint64_t id, uint32_t &key) {
  return attempt([&]() -> cerrno {
    const use found(connection_->prepared->key_of, kind, id);
    if (!found->executeStep()) return ENOENT;
    key = static_cast<uint32_t>(found.number(0));
    return 0;
  });
}

// An entry without data does not outlive the process, so nothing is lost with it when the machine
// stops: its commit is not waited for. What is saved in it later brings it along.
cerrno checkpoint_store::create(uint32_t kind, uint32_t key, uint64_t &id) {
  if (const cerrno rc = look_for_files(); rc != 0) return rc;
  return attempt([&]() -> cerrno {
    sync_commits(false);
    unmerged_ = true;
    use(connection_->prepared->create, kind, key)->exec();
    id = static_cast<uint64_t>(connection_->database.getLastInsertRowid());
    return look_for_files();
  });
}

cerrno checkpoint_store::load(uint32_t kind, uint64_t id, uint32_t version,
                              std::span<std::byte> buffer) {
  return attempt([&]() -> cerrno {
    const use load(connection_->prepared->load, kind, id);
    if (!load->executeStep()) return ENOENT;
    if (load->isColumnNull(4)) return ENODATA;
    const std::span<const std::byte> data = load.bytes(4);
    if (load.number(1) != version || data.size() != buffer.size()) return EBADMSG;
    const record_key record = {kind, static_cast<uint32_t>(load.number(0))};
    const uint32_t checksum = record_checksum(record, version, load.number(2), data);
    if (load->isColumnNull(3) || load.number(3) != checksum) return EBADMSG;
    std::copy(data.begin(), data.end(), buffer.begin());
    return 0;
  });
}

cerrno checkpoint_store::save(uint32_t kind, uint64_t id, uint32_t version,
                              std::span<const std::byte> data) {
  if (const cerrno rc = look_for_files(); rc != 0) return rc;
  store_change change = {last_change_ + 1, {kind, 0}, false};
  if (const cerrno rc = key_of(kind, id, change.record.key); rc != 0) return rc;
  const cerrno rc = attempt([&]() -> cerrno {
    sync_commits(true);
    const uint32_t checksum = record_checksum(change.record, version, change.number, data);
    use(connection_->prepared->save, version, change.number, checksum, data, kind, id)->exec();
    return 0;
  });
  if (rc != 0) return rc;
  changed(change);
  return look_for_files();
}

cerrno checkpoint_store::remove(uint32_t kind, uint64_t id) {
  if (const cerrno rc = look_for_files(); rc != 0) return rc;
  store_change change = {last_change_ + 1, {kind, 0}, true};
  if (const cerrno rc = key_of(kind, id, change.record.key); rc != 0) return rc;
  const cerrno rc = attempt([&]() -> cerrno {
    sync_commits(true);
    SQLite::Database &database = connection_->database;
    database.exec("BEGIN IMMEDIATE");
    const database_change both(database.getHandle());
    use(connection_->prepared->remove, kind, id)->exec();
    use(connection_->prepared->removed, change.number, kind, change.record.key)->exec();
    database.exec("COMMIT");
    return 0;
  });
  if (rc != 0) return rc;
  changed(change);
  return look_for_files();
}

cerrno checkpoint_store::next(uint32_t kind, uint64_t after, uint64_t &id) {
  return attempt([&]() -> cerrno {
    const use next(connection_->prepared->next, kind, after);
    id = next->executeStep() ? next.number(0) : 0;
    return 0;
  });
}

uint64_t checkpoint_store::entries() {
  uint64_t number = 0;
  attempt([&]() -> cerrno {
    const use count(connection_->prepared->count);
    if (count->executeStep()) number = count.number(0);
    return 0;
  });
  return number;
}

bool checkpoint_store::has_data(const record_key &record) {
  bool has = true;
  attempt([&]() -> cerrno {
    const use found(connection_->prepared->has_data, record.kind, record.key);
    has = found->executeStep();
    return 0;
  });
  return has;
}

bool checkpoint_store::note_deletion(const record_key &record) {
  if (journal_.keeps(record)) return true;
  if (const auto before = unnoted_.find(record); before != unnoted_.end()) {
    note(store_change(before->second));
  } else {
    note({++last_change_, record, true});
  }
  if (unnoted_.contains(record)) return false;
  journal_.keep(record);
  return true;
}

cerrno checkpoint_store::look_for_files() {
  if (!is_for_writing_) return 0;
  if (has_moved()) {
    failure_ = "its file was moved or removed, a restart of the driver begins another";
    return ESTALE;
  }
  switch (look_for_log()) {
    case log_state::whole:
      return 0;
    case log_state::elsewhere:
      failure_ = "its write-ahead log " + log_file_.string() + " was moved, replaced or removed" +
                 (log_failure_.empty() ? "" : " and cannot be merged: " + log_failure_);
      return ESTALE;
    case log_state::cut:
      failure_ = "its write-ahead log " + log_file_.string() +
                 " was cut short, a restart of the driver says what was lost with it";
      return ESTALE;
  }
  return ESTALE;
}

bool checkpoint_store::has_moved() {
  int has = 0;
  sqlite3_file_control(connection_->database.getHandle(), "main", SQLITE_FCNTL_HAS_MOVED, &has);
  return has != 0;
}

// SQLite makes its log longer, and never shorter while it has it open.
checkpoint_store::log_state checkpoint_store::look_for_log() {
  const file_mark found = mark_of(log_file_);
  if (!found.is_same_file(log_)) return log_state::elsewhere;
  if (found.size < log_.size) return log_state::cut;
  log_ = found;
  return log_state::whole;
}

// A log that was taken away is still there for whoever has it open. One that lacks what the
// database does not have must not be merged: SQLite would not notice.
bool checkpoint_store::leave_lost_log() {
  if (!is_for_writing_ || has_moved()) return false;
  const log_state found = look_for_log();
  if (found == log_state::whole || (found == log_state::cut && unmerged_)) return false;
  const cerrno rc = merge(SQLITE_CHECKPOINT_TRUNCATE);
  log_failure_ = rc == 0 ? "" : failure_;
  return rc == 0;
}

cerrno checkpoint_store::try_writing() {
  if (const cerrno rc = look_for_files(); rc != 0) return rc;
  return attempt([&]() -> cerrno {
    sync_commits(true);
    unmerged_ = true;
    rewrite_mark(connection_->database);
    return 0;
  });
}

cerrno checkpoint_store::tend() {
  note_the_unnoted();
  if (!unmerged_ || look_for_log() == log_state::cut) return 0;
  return merge(SQLITE_CHECKPOINT_PASSIVE);
}

cerrno checkpoint_store::merge(int how) {
  return attempt([&]() -> cerrno {
    sqlite3 *const database = connection_->database.getHandle();
    int in_log = 0, merged = 0;
    const int result = sqlite3_wal_checkpoint_v2(database, nullptr, how, &in_log, &merged);
    if (result != SQLITE_OK) throw SQLite::Exception(database, result);
    unmerged_ = merged != in_log;
    return 0;
  });
}

// Without, SQLite still has the log synchronised before it is merged, and its head before it is
// begun anew. Throws when it stays as it was.
void checkpoint_store::sync_commits(bool on) {
  if (syncs_commits_ == on) return;
  connection_->database.exec(on ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
  syncs_commits_ = on;
}

// The store has the change.
void checkpoint_store::changed(const store_change &change) {
  last_change_ = change.number;
  unmerged_ = true;
  journal_.release(change.record);
  if (persistent_.contains(change.record.kind)) note(change);
}

// What cannot be noted is noted later; the change itself is safe in the store.
void checkpoint_store::note(const store_change &change) {
  const int error = refusal_ ? static_cast<int>(refusal_->code) : journal_.note(change);
  if (error != 0) {
    unnoted_[change.record] = change;
    blame_journal(error);
    return;
  }
  unnoted_.erase(change.record);
  if (unnoted_.empty()) journal_failure_.clear();
}

void checkpoint_store::note_the_unnoted() {
  for (const auto &[record, change] : decltype(unnoted_)(unnoted_)) note(change);
}

void checkpoint_store::blame_journal(int error) {
  journal_failure_ = "changes that are lost would not be noticed, for " + journal_file_.string() +
                     " cannot be written: " + std::strerror(error);
}

}  // namespace lum_linux
