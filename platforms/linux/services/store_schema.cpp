#include "services/store_schema.h"

#include <sqlite3.h>

namespace lum_linux {
namespace {

// What marks a database as a checkpoint store ("LUMC"), and the version of its schema.
constexpr uint64_t store_mark = 1280658755;
constexpr uint64_t schema_version = 1;

// An entry's version is that of the table's description when its data were saved. Ids are never
// used twice.
constexpr const char *schema =
    "PRAGMA application_id=1280658755;"
    "PRAGMA user_version=1;"
    "CREATE TABLE application(name TEXT NOT NULL, version INTEGER NOT NULL);"
    "CREATE TABLE tables(kind INTEGER PRIMARY KEY);"
    "CREATE TABLE entries(id INTEGER PRIMARY KEY AUTOINCREMENT, kind INTEGER NOT NULL,"
    " key INTEGER NOT NULL, version INTEGER, checksum INTEGER, data BLOB, UNIQUE(kind, key));";

// The columns of all tables, by table and place.
constexpr const char *columns_question =
    "SELECT group_concat(name, ' ') FROM (SELECT m.name || '.' || c.name AS name"
    " FROM sqlite_master m, pragma_table_info(m.name) c"
    " WHERE m.name IN ('application', 'entries', 'tables') ORDER BY m.name, c.cid)";
constexpr const char *columns =
    "application.name application.version entries.id entries.kind entries.key entries.version"
    " entries.checksum entries.data tables.kind";

bool has_mark(const SQLite::Database &database) {
  return ask_number(database, "PRAGMA application_id") == store_mark &&
         ask_number(database, "PRAGMA user_version") == schema_version;
}

store_verdict look_into(SQLite::Database &database, const store_owner &owner, std::string &reason) {
  database.exec("PRAGMA locking_mode=EXCLUSIVE");
  const bool empty = ask_number(database, "SELECT count(*) FROM sqlite_master") == 0u;
  if (!empty && !has_mark(database)) {
    reason = "it is no checkpoint store of this version";
    return store_verdict::refused;
  }
  if (ask(database, "PRAGMA journal_mode=WAL") != "wal") {
    throw SQLite::Exception("it cannot have a write-ahead log", SQLITE_ERROR);
  }
  database.exec("PRAGMA synchronous=FULL");
  database.exec("BEGIN IMMEDIATE; COMMIT");
  if (empty) return store_verdict::fresh;

  reason = complaint_of(database);
  if (!reason.empty()) return store_verdict::refused;
  if (ask(database, columns_question) != columns) {
    reason = "its tables are not those of a checkpoint store";
    return store_verdict::refused;
  }
  const auto name = ask(database, "SELECT name FROM application");
  const auto version = ask_number(database, "SELECT version FROM application");
  if (name != owner.name || version != owner.version) {
    reason = "it belongs to application " + name.value_or("(none)") + " version " +
             (version ? std::to_string(*version) : "(none)");
    return store_verdict::refused;
  }
  return store_verdict::usable;
}

}  // namespace

store_verdict judge_store(SQLite::Database &database, const store_owner &owner,
                          std::string &reason) {
  try {
    return look_into(database, owner, reason);
  } catch (const SQLite::Exception &failure) {
    if (!tells_of_damage(failure.getErrorCode())) throw;
    reason = failure.what();
    return store_verdict::refused;
  }
}

void set_up_store(SQLite::Database &database, const store_owner &owner) {
  SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
  database.exec(schema);
  SQLite::Statement insert(database, "INSERT INTO application VALUES(?, ?)");
  insert.bind(1, owner.name);
  insert.bind(2, owner.version);
  insert.exec();
  transaction.commit();
}

}  // namespace lum_linux
