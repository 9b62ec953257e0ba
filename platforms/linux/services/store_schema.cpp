#include "services/store_schema.h"

#include <sqlite3.h>

#include <optional>

#include "lum_linux/database_change.h"
#include "services/store_record.h"

namespace lum_linux {
namespace {

// What marks a database as a checkpoint store ("LUMC"), and the version of its schema.
constexpr uint64_t store_mark = 1280658755;
constexpr uint64_t schema_version = 2;
constexpr uint64_t first_schema_version = 1;  // without numbers of changes

// An entry's version is that of the table's description when its data were saved, its change the
// number of that save. Ids are never used twice. The store's own number tells its journal from
// others; of its deletions it remembers the latest.
constexpr const char *schema =
    "PRAGMA application_id=1280658755;"
    "PRAGMA user_version=2;"
    "CREATE TABLE application(name TEXT NOT NULL, version INTEGER NOT NULL, store INTEGER,"
    " deletion INTEGER, deleted_kind INTEGER, deleted_key INTEGER);"
    "CREATE TABLE tables(kind INTEGER PRIMARY KEY);"
    "CREATE TABLE entries(id INTEGER PRIMARY KEY AUTOINCREMENT, kind INTEGER NOT NULL,"
    " key INTEGER NOT NULL, version INTEGER, checksum INTEGER, data BLOB, change INTEGER,"
    " UNIQUE(kind, key));";

constexpr const char *additions =
    "PRAGMA user_version=2;"
    "ALTER TABLE application ADD COLUMN store INTEGER;"
    "ALTER TABLE application ADD COLUMN deletion INTEGER;"
    "ALTER TABLE application ADD COLUMN deleted_kind INTEGER;"
    "ALTER TABLE application ADD COLUMN deleted_key INTEGER;"
    "ALTER TABLE entries ADD COLUMN change INTEGER;";

// The columns of all tables, by table and place.
constexpr const char *columns_question =
    "SELECT group_concat(name, ' ') FROM (SELECT m.name || '.' || c.name AS name"
    " FROM sqlite_master m, pragma_table_info(m.name) c"
    " WHERE m.name IN ('application', 'entries', 'tables') ORDER BY m.name, c.cid)";
constexpr const char *columns =
    "application.name application.version application.store application.deletion"
    " application.deleted_kind application.deleted_key entries.id entries.kind entries.key"
    " entries.version entries.checksum entries.data entries.change tables.kind";
constexpr const char *first_columns =
    "application.name application.version entries.id entries.kind entries.key entries.version"
    " entries.checksum entries.data tables.kind";

// The schema's version, or none when the database is no checkpoint store.
std::optional<uint64_t> version_in(const SQLite::Database &database) {
  if (ask_number(database, "PRAGMA application_id") != store_mark) return std::nullopt;
  return ask_number(database, "PRAGMA user_version");
}

// Throws when the store takes no changes.
void begin_writing(SQLite::Database &database) {
  if (ask(database, "PRAGMA journal_mode=WAL") != "wal") {
    throw SQLite::Exception("it cannot have a write-ahead log", SQLITE_ERROR);
  }
  database.exec("PRAGMA synchronous=FULL");
  database.exec("BEGIN IMMEDIATE; COMMIT");
}

// A record keeps its data and gets a checksum of the new kind, unless the old one is wrong: then it
// gets none.
void carry_over(SQLite::Database &database) {
  SQLite::Statement all(
      database, "SELECT id, kind, key, version, checksum, data FROM entries WHERE data NOT NULL");
  SQLite::Statement change(database, "UPDATE entries SET change=?, checksum=? WHERE id=?");
  SQLite::Statement mark(database, "UPDATE entries SET change=?, checksum=NULL WHERE id=?");
  const use row(all);
  for (uint64_t number = 1; row->executeStep(); ++number) {
    const record_key record = {static_cast<uint32_t>(row.number(1)),
                               static_cast<uint32_t>(row.number(2))};
    const auto version = static_cast<uint32_t>(row.number(3));
    if (row.number(4) != data_checksum(row.bytes(5))) {
      use(mark, number, row.number(0))->exec();
      continue;
    }
    const uint32_t checksum = record_checksum(record, version, number, row.bytes(5));
    use(change, number, checksum, row.number(0))->exec();
  }
}

}  // namespace

store_verdict judge_store(SQLite::Database &database, const store_owner &owner, store_access access,
                          std::string &reason) {
  database.exec("PRAGMA locking_mode=EXCLUSIVE");
  const bool empty = ask_number(database, "SELECT count(*) FROM sqlite_master") == 0u;
  const auto version = version_in(database);
  const bool is_first = version == first_schema_version;
  if (!empty && version != schema_version && !is_first) {
    reason = "it is no checkpoint store of this version";
    return store_verdict::refused;
  }
  if (access == store_access::write) begin_writing(database);
  if (empty) return store_verdict::fresh;

  reason = complaint_of(database);
  if (!reason.empty()) return store_verdict::refused;
  if (ask(database, columns_question) != (is_first ? first_columns : columns)) {
    reason = "its tables are not those of a checkpoint store";
    return store_verdict::refused;
  }
  const auto name = ask(database, "SELECT name FROM application");
  const auto of_version = ask_number(database, "SELECT version FROM application");
  if (name != owner.name || of_version != owner.version) {
    reason = "it belongs to application " + name.value_or("(none)") + " version " +
             (of_version ? std::to_string(*of_version) : "(none)");
    return store_verdict::refused;
  }
  return is_first ? store_verdict::old : store_verdict::usable;
}

void set_up_store(SQLite::Database &database, const store_owner &owner) {
  database.exec("BEGIN IMMEDIATE");
  const database_change whole(database.getHandle());
  database.exec(schema);
  SQLite::Statement insert(database,
                           "INSERT INTO application(name, version, store) VALUES(?, ?, random())");
  insert.bind(1, owner.name);
  insert.bind(2, owner.version);
  insert.exec();
  database.exec("COMMIT");
}

void rewrite_mark(SQLite::Database &database) {
  database.exec("PRAGMA user_version=" + std::to_string(schema_version));
}

void renew_store(SQLite::Database &database) {
  database.exec("BEGIN IMMEDIATE");
  const database_change whole(database.getHandle());
  database.exec(additions);
  database.exec("UPDATE application SET store=random()");
  carry_over(database);
  database.exec("COMMIT");
}

}  // namespace lum_linux
