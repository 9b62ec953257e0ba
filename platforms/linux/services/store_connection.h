// The database behind a checkpoint store and the statements for it; only the store's own parts
// include this.
#pragma once

#include <sqlite3.h>

#include <cerrno>
#include <filesystem>
#include <optional>

#include "lum_linux/database_change.h"
#include "services/checkpoint_store.h"
#include "services/store_files.h"
#include "services/store_sql.h"

namespace lum_linux {

struct store_statements {
  explicit store_statements(const SQLite::Database &database)
      : add_table(database, "INSERT INTO tables VALUES(?)"),
        has_table(database, "SELECT 1 FROM tables WHERE kind=?"),
        clear_table(database, "DELETE FROM entries WHERE kind=?"),
        clear_empty(database,
                    "DELETE FROM entries WHERE kind=? AND data IS NULL AND change IS NULL"),
        of_other_version(database,
                         "SELECT key, version FROM entries WHERE kind=? AND version<>? AND"
                         " data IS NOT NULL"),
        find(database, "SELECT id FROM entries WHERE kind=? AND key=?"),
        key_of(database, "SELECT key FROM entries WHERE kind=? AND id=?"),
        create(database, "INSERT INTO entries(kind, key) VALUES(?, ?)"),
        load(database,
             "SELECT key, version, change, checksum, data FROM entries WHERE kind=? AND id=?"),
        save(database,
             "UPDATE entries SET version=?, change=?, checksum=?, data=? WHERE kind=? AND id=?"),
        remove(database, "DELETE FROM entries WHERE kind=? AND id=?"),
        removed(database, "UPDATE application SET deletion=?, deleted_kind=?, deleted_key=?"),
        has_data(database, "SELECT 1 FROM entries WHERE kind=? AND key=? AND data IS NOT NULL"),
        next(database,
             "SELECT id FROM entries WHERE kind=? AND id>? AND data IS NOT NULL "
             "ORDER BY id LIMIT 1"),
        count(database, "SELECT count(*) FROM entries") {}

  SQLite::Statement add_table, has_table, clear_table, clear_empty, of_other_version, find, key_of,
      create, load, save, remove, removed, has_data, next, count;
};

struct checkpoint_store::connection {
  connection(const std::filesystem::path &file, std::chrono::milliseconds patience)
      : database(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE,
                 static_cast<int>(patience.count())) {}
  // To read what nobody else has open.
  explicit connection(const std::filesystem::path &file)
      : database(reading_address(file), SQLite::OPEN_READONLY | SQLite::OPEN_URI) {
    leave_log();
  }
  // What the write-ahead log holds stays in it when the database is closed.
  void leave_log() {
    sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  }

  SQLite::Database database;
  std::optional<store_statements> prepared;  // goes before the database
};

// Makes a code of what `call` throws.
template <typename Call>
cerrno checkpoint_store::attempt(Call call) {
  try {
    if (connection_ != nullptr && !undo_change(connection_->database.getHandle())) {
      failure_ = "a change cannot be undone";
      return ENOMEM;
    }
    return call();
  } catch (const SQLite::Exception &failure) {
    if (refusal_ && (failure.getErrorCode() & 0xff) == SQLITE_READONLY) {
      failure_ = refusal_->text;
      return refusal_->code;
    }
    failure_ = failure.what();
    const int system_error =
        connection_ == nullptr ? 0 : sqlite3_system_errno(connection_->database.getHandle());
    return code_of(failure.getErrorCode(), system_error);
  }
}

}  // namespace lum_linux
