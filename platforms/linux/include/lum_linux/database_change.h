// Changes of an SQLite database of several steps, made whole or not at all, whatever memory there
// is: the wrapper's own transaction ends the process where there is none to undo one with. Of one
// thread at a time, as the database is.
#pragma once

struct sqlite3;

namespace lum_linux {

// Undoes what was begun in the database and not committed. False when that cannot be done now, for
// want of memory: what is changed before it is done would not be kept.
bool undo_change(sqlite3 *database) noexcept;

// Stands between BEGIN and what is behind COMMIT; what was not committed by then is undone.
class database_change {
 public:
  explicit database_change(sqlite3 *database) : database_(database) {}
  ~database_change() { undo_change(database_); }
  database_change(const database_change &) = delete;
  database_change &operator=(const database_change &) = delete;

 private:
  sqlite3 *const database_;
};

}  // namespace lum_linux
