// What the parts of the checkpoint store need of SQLite.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "cerr.h"

namespace lum_linux {

// The code for a result of SQLite, with the system's error when there is one.
cerrno code_of(int result, int system_error);

// Whether a result says that the file is damaged or no database at all.
bool tells_of_damage(int result);

// The first column of the first row; absent when there is no row. Throws SQLite::Exception.
std::optional<std::string> ask(const SQLite::Database &database, const char *question);

// As above for a number; absent also for NULL.
std::optional<uint64_t> ask_number(const SQLite::Database &database, const char *question);

// What an integrity check complains of; empty when all is well. Throws SQLite::Exception for what
// kept it from looking, which it would otherwise tell like damage.
std::string complaint_of(const SQLite::Database &database);

// One use of a statement: binds what stands for its question marks, which has to stay until the
// use ends, and resets it at the end.
class use {
 public:
  template <typename... Values>
  explicit use(SQLite::Statement &statement, const Values &...values) : statement_(statement) {
    int position = 0;
    (bind(++position, values), ...);
  }
  ~use() { statement_.tryReset(); }
  use(const use &) = delete;
  use &operator=(const use &) = delete;

  SQLite::Statement *operator->() const { return &statement_; }
  uint64_t number(int column) const {
    return static_cast<uint64_t>(statement_.getColumn(column).getInt64());
  }
  // Valid until the next step or the end of the use.
  std::span<const std::byte> bytes(int column) const;

 private:
  void bind(int position, uint64_t value);
  void bind(int position, std::span<const std::byte> value);

  SQLite::Statement &statement_;
};

}  // namespace lum_linux
