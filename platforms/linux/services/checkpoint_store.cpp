#include "services/checkpoint_store.h"

#include <sqlite3.h>

#include <algorithm>
#include <boost/crc.hpp>
#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "services/store_files.h"
#include "services/store_sql.h"

namespace lum_linux {
namespace {

namespace fs = std::filesystem;

// How long to wait for a process that is just ending to let go of the database.
constexpr int busy_wait_ms = 2000;

// How often a store is opened that cannot be read just now, and what passes between.
constexpr int opening_attempts = 3;
constexpr std::chrono::milliseconds opening_pause(50);

uint32_t checksum(std::span<const std::byte> data) {
  boost::crc_32_type crc;
  crc.process_bytes(data.data(), data.size());
  return crc.checksum();
}

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

checkpoint_store::opened checkpoint_store::open(const fs::path &file, const store_owner &owner) {
  opened result;
  for (int attempts = 1;; ++attempts) {
    result = open_once(file, owner);
    const bool may_pass = result.code == EIO || result.code == ENOMEM;
    if (!may_pass || attempts == opening_attempts) return result;
    std::this_thread::sleep_for(opening_pause);
  }
}

// A file that is refused is looked at once more, by a connection that remembers nothing. If it is
// refused again it is set aside, and there is none at the third look.
checkpoint_store::opened checkpoint_store::open_once(const fs::path &file,
                                                     const store_owner &owner) {
  opened result;
  bool refused_before = false;
  for (int looks = 0; looks < 3; ++looks) {
    std::string refused_for;
    if (result.code = look_at(file, owner, result, refused_for); result.code != 0) return result;
    if (refused_for.empty()) return result;
    if (!std::exchange(refused_before, true)) continue;
    result.set_aside = lum_linux::set_aside(file);
    std::replace(refused_for.begin(), refused_for.end(), '\n', ' ');
    result.set_aside_reason = refused_for;
    if (!result.set_aside.empty()) continue;
    result.code = errno != 0 ? static_cast<cerrno>(errno) : EIO;
    result.failure = "it cannot be used (" + refused_for + ") and cannot be renamed";
    return result;
  }
  result.code = EIO;
  result.failure = "it is refused although it is new";
  return result;
}

// Opens the store as it is: `result` has it, or `refused_for` says why it is none, or the code
// tells what kept it from being looked at.
cerrno checkpoint_store::look_at(const fs::path &file, const store_owner &owner, opened &result,
                                 std::string &refused_for) {
  std::unique_ptr<checkpoint_store> store(new checkpoint_store);
  store_verdict found = store_verdict::refused;
  const cerrno code = store->attempt([&]() -> cerrno {
    store->connection_ = std::make_unique<connection>(file);
    SQLite::Database &database = store->connection_->database;
    found = judge_store(database, owner, refused_for);
    if (found == store_verdict::refused) return 0;
    if (found == store_verdict::fresh) set_up_store(database, owner);
    store->connection_->prepared.emplace(database);
    return 0;
  });
  if (code != 0) {
    refused_for.clear();
    result.failure = store->failure_text();
    const int error = store->connection_ == nullptr && code == EACCES ? error_of_opening(file) : 0;
    if (store->connection_ != nullptr) store->close_as_found();
    return error != 0 ? static_cast<cerrno>(error) : code;
  }
  if (found == store_verdict::refused) {
    store->close_as_found();
    return 0;
  }
  if (found == store_verdict::fresh) sync_folder(file.parent_path());
  result.store = std::move(store);
  return 0;
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
