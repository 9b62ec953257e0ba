#include "lum_linux/database_change.h"

#include <sqlite3.h>

namespace lum_linux {

bool undo_change(sqlite3 *database) noexcept {
  if (sqlite3_get_autocommit(database) == 0) {
    sqlite3_exec(database, "ROLLBACK", nullptr, nullptr, nullptr);
  }
  return sqlite3_get_autocommit(database) != 0;
}

}  // namespace lum_linux
