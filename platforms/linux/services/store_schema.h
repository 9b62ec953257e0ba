// What makes a database a checkpoint store: its mark, its tables and whose they are.
#pragma once

#include <cstdint>
#include <string>

#include "services/store_sql.h"

namespace lum_linux {

// Whose records a store holds.
struct store_owner {
  std::string name;
  uint32_t version = 0;
};

enum class store_access { read, write };

enum class store_verdict {
  usable,
  old,      // a store of the first schema, otherwise usable
  fresh,    // without any table
  refused,  // it does not pass the integrity check, or is somebody else's
};

// Looks at a database before anything is written to it, takes it for this process alone, and checks
// the whole of it. `reason` says why it is refused. Throws SQLite::Exception, also when it is to be
// written to and takes no changes.
store_verdict judge_store(SQLite::Database &database, const store_owner &owner, store_access access,
                          std::string &reason);

// Makes a fresh database a store.
void set_up_store(SQLite::Database &database, const store_owner &owner);

// Writes the schema's version once more: a row that stays as it is would not be written.
void rewrite_mark(SQLite::Database &database);

// Makes an old store one of today's, whole or not at all. A record whose checksum is wrong stays
// one that is damaged.
void renew_store(SQLite::Database &database);

}  // namespace lum_linux
