// The file behind the checkpoint service: a SQLite database in WAL mode, synchronised at every
// commit of data, that one process at a time has open, and a journal of its latest changes. Not
// thread-safe: the service serialises.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "cerr.h"
#include "services/change_journal.h"
#include "services/store_files.h"
#include "services/store_recovery.h"
#include "services/store_schema.h"

namespace lum_linux {

class checkpoint_store {
 public:
  struct opened {
    std::unique_ptr<checkpoint_store> store;  // null when `code` is not 0
    cerrno code = 0;
    std::string failure;
    std::filesystem::path set_aside;  // what a store that cannot be used was renamed to, or empty
    std::string set_aside_reason;
    std::vector<lost_record> lost;
    std::vector<record_key> undeleted;  // still there although they were deleted, as is noted
    std::vector<std::string> notes;     // what else is to be told
  };

  ~checkpoint_store();

  // Opens the store, creating it when there is none. A store that is damaged, or was written by
  // another application or version, and is so at a second look too, is renamed and a new one begun.
  // Whatever else goes wrong leaves the file as it is. Waits up to `patience` for a process that
  // has the store, and with any patience at all tries again when it cannot be read. One that cannot
  // be changed and can be read is opened for that: its changes fail as its opening did. May throw
  // std::bad_alloc.
  static opened open(const std::filesystem::path &file, const store_owner &owner,
                     std::chrono::milliseconds patience);

  // Makes the table known. `found` says whether it was there and persists. `lost` gets its entries
  // of another version.
  cerrno add_table(uint32_t kind, uint32_t version, bool persistent, bool &found,
                   std::vector<lost_record> &lost);

  // Drops what an earlier process has left: entries without data, or all of them when the table
  // does not persist. Not to be called once ids have been given out.
  cerrno clear_table(uint32_t kind, bool persistent);

  // Return 0, 2 when there is no such entry, or the store's code.
  cerrno find(uint32_t kind, uint32_t key, uint64_t &id);
  cerrno key_of(uint32_t kind, uint64_t id, uint32_t &key);
  cerrno remove(uint32_t kind, uint64_t id);
  cerrno save(uint32_t kind, uint64_t id, uint32_t version, std::span<const std::byte> data);
  // As above, 61 for an entry without data, or 74 when the data are damaged, of another version or
  // not of the buffer's size.
  cerrno load(uint32_t kind, uint64_t id, uint32_t version, std::span<std::byte> buffer);
  // Returns 17 when the key has an entry.
  cerrno create(uint32_t kind, uint32_t key, uint64_t &id);
  // The first entry with data whose id is above `after`; 0 when there is none.
  cerrno next(uint32_t kind, uint64_t after, uint64_t &id);

  // Whether the record has data, as far as can be seen.
  bool has_data(const record_key &record);

  // Notes that a record is to be deleted that cannot be deleted now: whoever opens the store next
  // does it. Says whether that is on the disk; if it is not, tend() tries again.
  bool note_deletion(const record_key &record);

  uint64_t entries();

  // Returns 0 while the file and its write-ahead log are where they were opened and the log is
  // whole, or 116: what is written to one that was moved or removed is lost with it. Nothing is
  // written until it is 0 again.
  cerrno look_for_files();

  // Brings all that a write-ahead log holds which was taken away into the database: the store can
  // be closed then without a loss, and opened again with a new log. Says whether that is so; a log
  // that is where it was stays as it is.
  bool leave_lost_log();

  // Writes what changes nothing. Returns 0 when the store takes changes, or its code.
  cerrno try_writing();

  // Does what is due now and then: merges the write-ahead log into the database, and notes what
  // could not be noted.
  cerrno tend();

  // Text of the latest failure.
  const std::string &failure_text() const { return failure_; }
  // Whether it takes no changes, as its opening has found.
  bool is_read_only() const { return refusal_.has_value(); }
  // Why a change that is lost would not be noticed; empty when it would.
  const std::string &journal_failure() const { return journal_failure_; }

 private:
  struct connection;  // the database and the statements for it
  // A file that is to be opened.
  struct wanted {
    const std::filesystem::path &file;
    const store_owner &owner;
    std::chrono::milliseconds patience;
    store_access access;
  };
  struct write_refusal {
    cerrno code;
    std::string text;
  };

  static void read_instead(const wanted &what, opened &result);
  static opened open_once(const wanted &what);
  static cerrno look_at(const wanted &what, opened &result, std::string &refused_for);
  cerrno prepare(const wanted &what, opened &result, std::string &refused_for);
  void examine(const wanted &what, store_verdict found, opened &result);
  void finish_deletions(const std::vector<record_key> &undeleted, opened &result);
  void close_as_found();
  enum class log_state { whole, elsewhere, cut };
  bool has_moved();
  log_state look_for_log();
  cerrno merge(int how);
  void sync_commits(bool on);
  void changed(const store_change &change);
  void note(const store_change &change);
  void note_the_unnoted();
  void blame_journal(int error);
  template <typename Call>
  cerrno attempt(Call call);

  std::unique_ptr<connection> connection_;
  change_journal journal_;
  std::filesystem::path journal_file_;
  std::map<record_key, store_change> unnoted_;
  std::set<uint32_t> persistent_;  // kinds of tables
  uint64_t last_change_ = 0;
  bool unmerged_ = true;
  bool syncs_commits_ = true;
  bool is_for_writing_ = false;
  std::filesystem::path log_file_;
  file_mark log_;  // as this process left it
  std::string log_failure_;
  std::optional<write_refusal> refusal_;  // of the opening, when it can only be read
  std::string failure_;
  std::string journal_failure_;
};

}  // namespace lum_linux
