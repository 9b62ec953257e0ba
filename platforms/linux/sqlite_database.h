// The little of SQLite that the checkpoint store needs, with its errors turned into result codes.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "cerr.h"

namespace lum_linux {

class sqlite_statement;

class sqlite_database {
 public:
  // Returns 0 or a code.
  cerrno open(const std::filesystem::path &file);
  // `merge` moves what the write-ahead log holds into the database; else both stay as they are.
  void close(bool merge);

  // Runs one or more statements whose rows do not matter.
  cerrno execute(const char *statements);
  // The first column of the first row, as text; absent when it fails or has no row.
  std::optional<std::string> query(const char *statement);
  cerrno prepare(const char *text, sqlite_statement &statement);

  int64_t last_insert_id() const { return sqlite3_last_insert_rowid(handle_.get()); }
  int changed_rows() const { return sqlite3_changes(handle_.get()); }

  // The latest call's result as a code and as text.
  cerrno code() const;
  std::string failure_text() const;
  // Whether the latest failure says that the file is damaged or no database at all.
  bool damaged() const;

 private:
  struct closer {
    void operator()(sqlite3 *handle) const { sqlite3_close_v2(handle); }
  };
  std::unique_ptr<sqlite3, closer> handle_;
};

// A prepared statement: bind in the order of its question marks, step, read, and reset by the end
// of the sqlite_use that guards it.
class sqlite_statement {
 public:
  sqlite_statement &bind(uint64_t value);
  // The bytes must stay until the statement is reset.
  sqlite_statement &bind(std::span<const std::byte> value);
  // SQLITE_ROW, SQLITE_DONE or a failure, that of a bind included.
  int step() { return failure_ != SQLITE_OK ? failure_ : sqlite3_step(handle_.get()); }
  uint64_t number(int column) const {
    return static_cast<uint64_t>(sqlite3_column_int64(handle_.get(), column));
  }
  bool is_null(int column) const {
    return sqlite3_column_type(handle_.get(), column) == SQLITE_NULL;
  }
  // Valid until the next step or reset.
  std::span<const std::byte> bytes(int column) const;
  std::string text(int column) const;
  void reset();

 private:
  friend class sqlite_database;
  struct finalizer {
    void operator()(sqlite3_stmt *handle) const { sqlite3_finalize(handle); }
  };
  std::unique_ptr<sqlite3_stmt, finalizer> handle_;
  int next_parameter_ = 1;
  int failure_ = SQLITE_OK;
};

class sqlite_use {
 public:
  explicit sqlite_use(sqlite_statement &statement) : statement_(statement) {}
  ~sqlite_use() { statement_.reset(); }
  sqlite_use(const sqlite_use &) = delete;
  sqlite_use &operator=(const sqlite_use &) = delete;
  sqlite_statement *operator->() const { return &statement_; }

 private:
  sqlite_statement &statement_;
};

}  // namespace lum_linux
