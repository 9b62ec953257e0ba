#include "services/checkpoint_store.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

#include <algorithm>
#include <boost/crc.hpp>
#include <cerrno>
#include <limits>

#include "services/store_files.h"

namespace lum_linux {
namespace {

namespace fs = std::filesystem;

// What marks a database as a checkpoint store ("LUMC"), and the version of its schema.
constexpr const char *store_mark = "1280658755";
constexpr const char *schema_version = "1";

// How long to wait for a process that is just ending to let go of the database.
constexpr int busy_wait_ms = 2000;

// An entry's version is that of the table's description when its data were saved. Ids are never
// used twice.
constexpr const char *schema =
    "PRAGMA application_id=1280658755;"
    "PRAGMA user_version=1;"
    "CREATE TABLE application(name TEXT NOT NULL, version INTEGER NOT NULL);"
    "CREATE TABLE tables(kind INTEGER PRIMARY KEY);"
    "CREATE TABLE entries(id INTEGER PRIMARY KEY AUTOINCREMENT, kind INTEGER NOT NULL,"
    " key INTEGER NOT NULL, version INTEGER, checksum INTEGER, data BLOB, UNIQUE(kind, key));";

uint32_t checksum(std::span<const std::byte> data) {
  boost::crc_32_type crc;
  crc.process_bytes(data.data(), data.size());
  return crc.checksum();
}

cerrno code_of(int result, int system_error) {
  switch (result & 0xff) {
    case SQLITE_FULL:
      return ENOSPC;
    case SQLITE_IOERR:
      return system_error == ENOSPC || system_error == EDQUOT ? ENOSPC : EIO;
    case SQLITE_NOMEM:
      return ENOMEM;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return EBUSY;
    case SQLITE_READONLY:
      return EROFS;
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
      return system_error != 0 ? static_cast<cerrno>(system_error) : EACCES;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return EBADMSG;
    case SQLITE_TOOBIG:
      return EFBIG;
    case SQLITE_CONSTRAINT:
      return EEXIST;
    default:
      return EIO;
  }
}

// Whether a failure says that the file is damaged or no database at all.
bool tells_of_damage(const SQLite::Exception &failure) {
  const int result = failure.getErrorCode() & 0xff;
  return result == SQLITE_CORRUPT || result == SQLITE_NOTADB;
}

// The first column of the first row; absent when there is no row.
std::optional<std::string> ask(const SQLite::Database &database, const char *question) {
  SQLite::Statement statement(database, question);
  if (!statement.executeStep()) return std::nullopt;
  return statement.getColumn(0).getText();
}

// As above, and absent when the question cannot be answered.
std::optional<std::string> ask_if_possible(const SQLite::Database &database, const char *question) {
  try {
    return ask(database, question);
  } catch (const SQLite::Exception &) {
    return std::nullopt;
  }
}

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
  std::span<const std::byte> bytes(int column) const {
    const SQLite::Column found = statement_.getColumn(column);
    const auto *data = static_cast<const std::byte *>(found.getBlob());
    if (data == nullptr) return {};
    return {data, static_cast<size_t>(found.getBytes())};
  }

 private:
  void bind(int position, uint64_t value) {
    statement_.bind(position, static_cast<int64_t>(value));
  }
  void bind(int position, std::span<const std::byte> value) {
    if (value.size() > std::numeric_limits<int>::max()) {
      throw SQLite::Exception("more bytes than a record can have", SQLITE_TOOBIG);
    }
    // A null pointer would bind NULL instead of no bytes.
    const void *data = value.empty() ? "" : static_cast<const void *>(value.data());
    statement_.bindNoCopy(position, data, static_cast<int>(value.size()));
  }

  SQLite::Statement &statement_;
};

struct statements {
  explicit statements(const SQLite::Database &database)
      : add_table(database, "INSERT INTO tables VALUES(?)"),
        has_table(database, "SELECT 1 FROM tables WHERE kind=?"),
        clear_table(database, "DELETE FROM entries WHERE kind=?"),
        clear_empty(database, "DELETE FROM entries WHERE kind=? AND data IS NULL"),
        find(database, "SELECT id FROM entries WHERE kind=? AND key=?"),
        create(database, "INSERT INTO entries(kind, key) VALUES(?, ?)"),
        load(database, "SELECT version, checksum, data FROM entries WHERE kind=? AND id=?"),
        save(database, "UPDATE entries SET version=?, checksum=?, data=? WHERE kind=? AND id=?"),
        remove(database, "DELETE FROM entries WHERE kind=? AND id=?"),
        next(database,
             "SELECT id FROM entries WHERE kind=? AND id>? AND data IS NOT NULL "
             "ORDER BY id LIMIT 1"),
        count(database, "SELECT count(*) FROM entries") {}

  SQLite::Statement add_table, has_table, clear_table, clear_empty, find, create, load, save,
      remove, next, count;
};

}  // namespace

struct checkpoint_store::connection {
  explicit connection(const fs::path &file)
      : database(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, busy_wait_ms) {}

  SQLite::Database database;
  std::optional<statements> prepared;  // goes before the database
};

checkpoint_store::~checkpoint_store() = default;

// Makes a code of what `call` throws.
template <typename Call>
cerrno checkpoint_store::attempt(Call call) {
  try {
    return call();
  } catch (const SQLite::Exception &failure) {
    failure_ = failure.what();
    const int system_error =
        connection_ == nullptr ? 0 : sqlite3_system_errno(connection_->database.getHandle());
    return code_of(failure.getErrorCode(), system_error);
  }
}

checkpoint_store::opened checkpoint_store::open(const fs::path &file, const application &owner) {
  opened result;
  // The second attempt finds no file: the first has set it aside.
  for (int tries = 0; tries < 2; ++tries) {
    std::unique_ptr<checkpoint_store> store(new checkpoint_store);
    std::string reason;
    verdict found = verdict::refused;
    result.code = store->attempt([&]() -> cerrno {
      store->connection_ = std::make_unique<connection>(file);
      found = store->judge(owner, reason);
      if (found == verdict::fresh) store->set_up(owner);
      return 0;
    });
    if (result.code != 0) {
      if (store->connection_ == nullptr && result.code == EACCES) {
        if (const int error = error_of_opening(file)) result.code = static_cast<cerrno>(error);
      }
      result.failure = store->failure_text();
      return result;
    }
    if (found != verdict::refused) {
      if (found == verdict::fresh) sync_folder(file.parent_path());
      result.store = std::move(store);
      return result;
    }
    store->close_as_found();
    result.set_aside = lum_linux::set_aside(file);
    if (result.set_aside.empty()) {
      result.code = errno != 0 ? static_cast<cerrno>(errno) : EIO;
      result.failure = "cannot be renamed";
    }
    std::replace(reason.begin(), reason.end(), '\n', ' ');
    result.set_aside_reason = reason;
    if (result.code != 0) return result;
  }
  result.code = EIO;
  result.failure = "is refused although it is new";
  return result;
}

checkpoint_store::verdict checkpoint_store::judge(const application &owner, std::string &reason) {
  try {
    return look_into(owner, reason);
  } catch (const SQLite::Exception &failure) {
    if (!tells_of_damage(failure)) throw;
    reason = failure.what();
    return verdict::refused;
  }
}

// Looks at the file before anything is written to it, takes it for this process alone, and checks
// the whole of it.
checkpoint_store::verdict checkpoint_store::look_into(const application &owner,
                                                      std::string &reason) {
  SQLite::Database &database = connection_->database;
  database.exec("PRAGMA locking_mode=EXCLUSIVE");
  const bool empty = ask(database, "SELECT count(*) FROM sqlite_master") == "0";
  if (!empty && (ask_if_possible(database, "PRAGMA application_id") != store_mark ||
                 ask_if_possible(database, "PRAGMA user_version") != schema_version)) {
    reason = "it is no checkpoint store of this version";
    return verdict::refused;
  }
  if (ask(database, "PRAGMA journal_mode=WAL") != "wal") {
    throw SQLite::Exception("it cannot have a write-ahead log", SQLITE_ERROR);
  }
  database.exec("PRAGMA synchronous=FULL");
  database.exec("BEGIN IMMEDIATE; COMMIT");
  if (empty) return verdict::fresh;

  const std::string integrity = ask(database, "PRAGMA integrity_check(1)").value_or("");
  if (integrity != "ok") {
    reason = integrity;
    return verdict::refused;
  }
  const auto name = ask_if_possible(database, "SELECT name FROM application");
  const auto version = ask_if_possible(database, "SELECT version FROM application");
  if (name != owner.name || version != std::to_string(owner.version)) {
    reason = "it belongs to application " + name.value_or("(none)") + " version " +
             version.value_or("(none)");
    return verdict::refused;
  }
  try {
    connection_->prepared.emplace(database);
  } catch (const SQLite::Exception &failure) {
    reason = failure.what();
    return verdict::refused;
  }
  return verdict::usable;
}

void checkpoint_store::set_up(const application &owner) {
  SQLite::Database &database = connection_->database;
  SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
  database.exec(schema);
  SQLite::Statement insert(database, "INSERT INTO application VALUES(?, ?)");
  insert.bind(1, owner.name);
  insert.bind(2, owner.version);
  insert.exec();
  transaction.commit();
  connection_->prepared.emplace(database);
}

// Leaves what the write-ahead log holds in it rather than merging it into a database that is not
// understood.
void checkpoint_store::close_as_found() {
  sqlite3_db_config(connection_->database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1,
                    nullptr);
  connection_.reset();
}

cerrno checkpoint_store::add_table(uint32_t kind, bool persistent, bool &found) {
  bool there = false;
  const cerrno rc = attempt([&]() -> cerrno {
    there = use(connection_->prepared->has_table, kind)->executeStep();
    if (!there) use(connection_->prepared->add_table, kind)->exec();
    return 0;
  });
  if (rc != 0) return rc;
  if (there) {
    const cerrno cleared = attempt([&]() -> cerrno {
      statements &prepared = *connection_->prepared;
      use(persistent ? prepared.clear_empty : prepared.clear_table, kind)->exec();
      return 0;
    });
    // Entries without data do no harm, so a full disk need not stop the others from being read.
    if (cleared != 0 && !persistent) return cleared;
  }
  found = there && persistent;
  return 0;
}

cerrno checkpoint_store::find(uint32_t kind, uint32_t key, uint64_t &id) {
  return attempt([&]() -> cerrno {
    const use find(connection_->prepared->find, kind, key);
    if (!find->executeStep()) return ENOENT;
    id = find.number(0);
    return 0;
  });
}

cerrno checkpoint_store::create(uint32_t kind, uint32_t key, uint64_t &id) {
  return attempt([&]() -> cerrno {
    use(connection_->prepared->create, kind, key)->exec();
    id = static_cast<uint64_t>(connection_->database.getLastInsertRowid());
    return 0;
  });
}

cerrno checkpoint_store::load(uint32_t kind, uint64_t id, uint32_t version,
                              std::span<std::byte> buffer) {
  return attempt([&]() -> cerrno {
    const use load(connection_->prepared->load, kind, id);
    if (!load->executeStep()) return ENOENT;
    if (load->isColumnNull(2)) return ENODATA;
    const std::span<const std::byte> data = load.bytes(2);
    if (load.number(0) != version || data.size() != buffer.size()) return EBADMSG;
    if (load.number(1) != checksum(data)) return EBADMSG;
    std::copy(data.begin(), data.end(), buffer.begin());
    return 0;
  });
}

cerrno checkpoint_store::save(uint32_t kind, uint64_t id, uint32_t version,
                              std::span<const std::byte> data) {
  return attempt([&]() -> cerrno {
    const use save(connection_->prepared->save, version, checksum(data), data, kind, id);
    return save->exec() == 1 ? 0 : ENOENT;
  });
}

cerrno checkpoint_store::remove(uint32_t kind, uint64_t id) {
  return attempt([&]() -> cerrno {
    return use(connection_->prepared->remove, kind, id)->exec() == 1 ? 0 : ENOENT;
  });
}

cerrno checkpoint_store::next(uint32_t kind, uint64_t after, uint64_t &id) {
  return attempt([&]() -> cerrno {
    const use next(connection_->prepared->next, kind, after);
    id = next->executeStep() ? next.number(0) : 0;
    return 0;
  });
}

uint64_t checkpoint_store::entries() {
  uint64_t number = 0;
  attempt([&]() -> cerrno {
    const use count(connection_->prepared->count);
    if (count->executeStep()) number = count.number(0);
    return 0;
  });
  return number;
}

}  // namespace lum_linux
