// A checkpoint store from its file to the first call.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "services/store_connection.h"
#include "services/store_files.h"

namespace lum_linux {
namespace {

namespace fs = std::filesystem;

// How often a store is opened that cannot be read just now, and what passes between.
constexpr int opening_attempts = 3;
constexpr std::chrono::milliseconds opening_pause(50);

// Why the journal does not tell what the store has lost; empty when it does.
std::string doubt_of(const journal_contents &journal, uint64_t store) {
  if (!journal.found) return "there was no journal of its latest changes";
  if (journal.store != store) return "the journal of its latest changes is another store's";
  return {};
}

// SQLite gives an I/O error where the system has a better word, such as for a read-only disk. To be
// called without a connection: closing a file gives up the locks on it.
cerrno reason_for(const fs::path &file, cerrno code) {
  if (code != EIO && code != EACCES && code != EROFS) return code;
  const int error = error_of_opening(file);
  return error != 0 ? static_cast<cerrno>(error) : code;
}

bool only_refuses_changes(cerrno code) {
  return code == EROFS || code == EACCES || code == EPERM || code == ENOSPC || code == EDQUOT;
}

}  // namespace

checkpoint_store::opened checkpoint_store::open(const fs::path &file, const store_owner &owner,
                                                std::chrono::milliseconds patience) {
  opened result;
  for (int attempts = 1;; ++attempts) {
    result = open_once({file, owner, patience, store_access::write});
    const bool may_pass = patience.count() > 0 && (result.code == EIO || result.code == ENOMEM);
    if (!may_pass || attempts == opening_attempts) break;
    std::this_thread::sleep_for(opening_pause);
  }
  if (only_refuses_changes(result.code)) {
    read_instead({file, owner, patience, store_access::read}, result);
  }
  return result;
}

// Of a store that takes no changes the records can be had all the same.
void checkpoint_store::read_instead(const wanted &what, opened &result) {
  opened found;
  std::string refused_for;
  if (!can_be_read_alone(what.file) || look_at(what, found, refused_for) != 0) return;
  if (found.store == nullptr) return;
  found.store->refusal_ = {result.code, result.failure};
  result = std::move(found);
}

// A file that is refused is looked at once more, by a connection that remembers nothing. If it is
// refused again it is set aside, and there is none at the third look.
checkpoint_store::opened checkpoint_store::open_once(const wanted &what) {
  opened result;
  bool refused_before = false;
  std::vector<lost_record> gone;  // with what is set aside
  for (int looks = 0; looks < 3; ++looks) {
    std::string refused_for;
    if (result.code = look_at(what, result, refused_for); result.code != 0) return result;
    if (refused_for.empty()) {
      result.lost.insert(result.lost.end(), gone.begin(), gone.end());
      return result;
    }
    if (!std::exchange(refused_before, true)) continue;
    gone = records_of(change_journal::read(journal_of(what.file)), "the store was set aside");
    result.set_aside = lum_linux::set_aside(what.file);
    std::replace(refused_for.begin(), refused_for.end(), '\n', ' ');
    result.set_aside_reason = refused_for;
    if (!result.set_aside.empty()) continue;
    result.code = errno != 0 ? static_cast<cerrno>(errno) : EIO;
    result.failure = "it cannot be used (" + refused_for + ") and cannot be renamed";
    return result;
  }
  result.code = EIO;
  result.failure = "it is refused although it is new";
  return result;
}

// Opens the store as it is: `result` has it, or `refused_for` says why it is none, or the code
// tells what kept it from being looked at.
cerrno checkpoint_store::look_at(const wanted &what, opened &result, std::string &refused_for) {
  std::unique_ptr<checkpoint_store> store(new checkpoint_store);
  const cerrno code = store->attempt([&]() -> cerrno {
    try {
      return store->prepare(what, result, refused_for);
    } catch (const SQLite::Exception &failure) {
      if (!tells_of_damage(failure.getErrorCode())) throw;
      refused_for = failure.what();
      return 0;
    }
  });
  if (code == 0 && refused_for.empty()) {
    result.store = std::move(store);
    return 0;
  }
  result.lost.clear();
  result.undeleted.clear();
  result.notes.clear();
  if (store->connection_ != nullptr) store->close_as_found();
  if (code == 0) return 0;
  refused_for.clear();
  result.failure = store->failure_text();
  return reason_for(what.file, code);
}

cerrno checkpoint_store::prepare(const wanted &what, opened &result, std::string &refused_for) {
  const bool is_to_read = what.access == store_access::read;
  connection_ = is_to_read ? std::make_unique<connection>(what.file)
                           : std::make_unique<connection>(what.file, what.patience);
  SQLite::Database &database = connection_->database;
  const store_verdict found = judge_store(database, what.owner, what.access, refused_for);
  if (found == store_verdict::refused) return 0;
  if (is_to_read && found != store_verdict::usable) {
    refused_for = "there is nothing to read in it as it is";
    return 0;
  }
  if (found == store_verdict::fresh) set_up_store(database, what.owner);
  if (found == store_verdict::old) renew_store(database);
  if (found == store_verdict::fresh) sync_folder(what.file.parent_path());
  connection_->prepared.emplace(database);
  log_file_ = log_of(what.file);
  log_ = mark_of(log_file_);
  is_for_writing_ = !is_to_read;
  examine(what, found, result);
  return 0;
}

// Finds what is lost and goes on with the journal.
void checkpoint_store::examine(const wanted &what, store_verdict found, opened &result) {
  const SQLite::Database &database = connection_->database;
  const uint64_t store = ask_number(database, "SELECT store FROM application").value_or(0);
  journal_file_ = journal_of(what.file);
  const journal_contents journal = change_journal::read(journal_file_);
  const std::string doubt = doubt_of(journal, store);
  const store_findings findings =
      examine_store(database, doubt.empty() ? journal : journal_contents());
  last_change_ = findings.last_change;
  result.lost = findings.lost;
  if (found == store_verdict::fresh) {
    result.lost = records_of(journal, "the store is gone");
  } else if (found == store_verdict::usable && !doubt.empty()) {
    result.notes.push_back(doubt + ": what it may have lost is not known");
  } else if (found == store_verdict::usable && !journal.closed) {
    result.notes.push_back(
        "the process before did not close it: where it told of a deletion that it could neither do "
        "nor note, the settings come back");
  }
  if (what.access == store_access::write) {
    if (const int error = journal_.open(journal_file_, store, journal); error != 0) {
      blame_journal(error);
      result.notes.push_back(journal_failure_);
    }
    if (findings.unnoted) note(*findings.unnoted);
  }
  finish_deletions(findings.undeleted, result);
}

void checkpoint_store::finish_deletions(const std::vector<record_key> &undeleted, opened &result) {
  for (const record_key &record : undeleted) {
    uint64_t id = 0;
    cerrno rc = find(record.kind, record.key, id);
    if (rc == 0) rc = remove(record.kind, id);
    if (rc != 0) {
      journal_.keep(record);
      result.undeleted.push_back(record);
    } else {
      result.notes.push_back(name_of(record) + " was still there although it had been deleted");
      note({last_change_, record, true});
    }
  }
}

// Leaves what the write-ahead log holds in it rather than merging it into a database that is not
// understood.
void checkpoint_store::close_as_found() {
  connection_->leave_log();
  connection_.reset();
}

}  // namespace lum_linux
