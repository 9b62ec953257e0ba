#include "services/checkpoint_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <system_error>

namespace lum_linux {
namespace {

namespace fs = std::filesystem;

// What marks a database as a checkpoint store ("LUMC"), and the version of its schema.
constexpr const char *store_mark = "1280658755";
constexpr const char *schema_version = "1";

// An entry's version is that of the table's description when its data were saved. Ids are never
// used twice.
constexpr const char *schema =
    "PRAGMA application_id=1280658755;"
    "PRAGMA user_version=1;"
    "CREATE TABLE application(name TEXT NOT NULL, version INTEGER NOT NULL);"
    "CREATE TABLE tables(kind INTEGER PRIMARY KEY);"
    "CREATE TABLE entries(id INTEGER PRIMARY KEY AUTOINCREMENT, kind INTEGER NOT NULL,"
    " key INTEGER NOT NULL, version INTEGER, checksum INTEGER, data BLOB, UNIQUE(kind, key));";

constexpr std::array<uint32_t, 256> crc_table = [] {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < table.size(); ++i) {
    uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit)
      value = (value & 1) != 0 ? value >> 1 ^ 0xEDB88320u : value >> 1;
    table[i] = value;
  }
  return table;
}();

uint32_t checksum(std::span<const std::byte> data) {
  uint32_t crc = 0xFFFFFFFFu;
  for (const std::byte b : data) crc = crc_table[(crc ^ static_cast<uint8_t>(b)) & 0xff] ^ crc >> 8;
  return ~crc;
}

// Makes a rename or a new file in the folder survive a crash of the machine.
void sync_folder(const fs::path &folder) {
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  ::close(fd);
}

std::string time_stamp() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm utc = {};
  gmtime_r(&now, &utc);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &utc);
  return text.data();
}

}  // namespace

checkpoint_store::opened checkpoint_store::open(const fs::path &file, const application &owner) {
  opened result;
  // The second attempt finds no file: the first has set it aside.
  for (int attempt = 0; attempt < 2; ++attempt) {
    std::unique_ptr<checkpoint_store> store(new checkpoint_store);
    result.code = store->database_.open(file);
    std::string reason;
    const verdict found = result.code == 0 ? store->judge(owner, reason) : verdict::failed;
    if (found == verdict::refused && attempt == 0) {
      store->database_.close(false);
      store.reset();
      result.set_aside = set_aside(file);
      std::replace(reason.begin(), reason.end(), '\n', ' ');
      result.set_aside_reason = reason;
      if (!result.set_aside.empty()) continue;
      result.code = errno != 0 ? static_cast<cerrno>(errno) : EIO;
      result.failure = "cannot be renamed";
      return result;
    }
    if (found == verdict::fresh) result.code = store->set_up(owner);
    if (found == verdict::failed && result.code == 0) {
      result.code = store->database_.code();
      if (result.code == 0) result.code = EIO;
    }
    if (result.code == 0) result.code = store->prepare();
    if (result.code != 0) {
      result.failure = store->failure_text();
      return result;
    }
    if (found == verdict::fresh) sync_folder(file.parent_path());
    result.store = std::move(store);
    return result;
  }
  return result;
}

// Looks at the file before anything is written to it, takes it for this process alone, and checks
// the whole of it.
checkpoint_store::verdict checkpoint_store::judge(const application &owner, std::string &reason) {
  const auto refuse_damaged = [&] {
    if (!database_.damaged()) return verdict::failed;
    reason = database_.failure_text();
    return verdict::refused;
  };
  if (database_.execute("PRAGMA locking_mode=EXCLUSIVE") != 0) return refuse_damaged();
  const auto objects = database_.query("SELECT count(*) FROM sqlite_master");
  if (!objects) return refuse_damaged();
  const bool empty = *objects == "0";
  if (!empty && (database_.query("PRAGMA application_id") != store_mark ||
                 database_.query("PRAGMA user_version") != schema_version)) {
    reason = "it is no checkpoint store of this version";
    return verdict::refused;
  }
  if (database_.query("PRAGMA journal_mode=WAL") != "wal") return refuse_damaged();
  if (database_.execute("PRAGMA synchronous=FULL") != 0) return refuse_damaged();
  if (database_.execute("BEGIN IMMEDIATE; COMMIT") != 0) return refuse_damaged();
  if (empty) return verdict::fresh;

  const auto integrity = database_.query("PRAGMA integrity_check(1)");
  if (!integrity) return refuse_damaged();
  if (*integrity != "ok") {
    reason = *integrity;
    return verdict::refused;
  }
  const auto name = database_.query("SELECT name FROM application");
  const auto version = database_.query("SELECT version FROM application");
  if (name != owner.name || version != std::to_string(owner.version)) {
    reason = "it belongs to application " + name.value_or("(none)") + " version " +
             version.value_or("(none)");
    return verdict::refused;
  }
  if (prepare() != 0) {
    reason = database_.failure_text();
    return verdict::refused;
  }
  return verdict::usable;
}

cerrno checkpoint_store::set_up(const application &owner) {
  cerrno rc = database_.execute("BEGIN IMMEDIATE");
  if (rc != 0) return rc;
  rc = database_.execute(schema);
  sqlite_statement insert;
  if (rc == 0) rc = database_.prepare("INSERT INTO application VALUES(CAST(? AS TEXT), ?)", insert);
  if (rc == 0) {
    sqlite_use use(insert);
    use->bind(std::as_bytes(std::span(owner.name))).bind(owner.version);
    if (use->step() != SQLITE_DONE) rc = database_.code();
  }
  if (rc == 0) rc = database_.execute("COMMIT");
  return rc;
}

cerrno checkpoint_store::prepare() {
  const struct {
    sqlite_statement &statement;
    const char *text;
  } statements[] = {
      {add_table_, "INSERT INTO tables VALUES(?)"},
      {has_table_, "SELECT 1 FROM tables WHERE kind=?"},
      {clear_table_, "DELETE FROM entries WHERE kind=?"},
      {clear_empty_, "DELETE FROM entries WHERE kind=? AND data IS NULL"},
      {find_, "SELECT id FROM entries WHERE kind=? AND key=?"},
      {create_, "INSERT INTO entries(kind, key) VALUES(?, ?)"},
      {load_, "SELECT version, checksum, data FROM entries WHERE kind=? AND id=?"},
      {save_, "UPDATE entries SET version=?, checksum=?, data=? WHERE kind=? AND id=?"},
      {remove_, "DELETE FROM entries WHERE kind=? AND id=?"},
      {next_,
       "SELECT id FROM entries WHERE kind=? AND id>? AND data IS NOT NULL ORDER BY id LIMIT 1"},
      {count_, "SELECT count(*) FROM entries"},
  };
  for (const auto &[statement, text] : statements) {
    if (const cerrno rc = database_.prepare(text, statement); rc != 0) return rc;
  }
  return 0;
}

// The write-ahead log goes along, under the name that fits. Returns an empty path with errno set
// when the file cannot be renamed.
fs::path checkpoint_store::set_aside(const fs::path &file) {
  const std::string base = file.string() + ".set-aside-" + time_stamp();
  fs::path target = base;
  for (int n = 2; fs::exists(target); ++n) target = base + "." + std::to_string(n);
  std::error_code error;
  for (const char *suffix : {"-wal", "-journal", "-shm"}) {
    fs::rename(file.string() + suffix, target.string() + suffix, error);
  }
  fs::rename(file, target, error);
  if (error) {
    errno = error.value();
    return {};
  }
  sync_folder(file.parent_path());
  return target;
}

cerrno checkpoint_store::add_table(uint32_t kind, bool persistent, bool &found) {
  bool there = false;
  {
    sqlite_use use(has_table_);
    const int rc = use->bind(kind).step();
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) return database_.code();
    there = rc == SQLITE_ROW;
  }
  if (!there) {
    sqlite_use use(add_table_);
    if (use->bind(kind).step() != SQLITE_DONE) return database_.code();
  } else {
    sqlite_use use(persistent ? clear_empty_ : clear_table_);
    // Entries without data do no harm, so a full disk need not stop the others from being read.
    if (use->bind(kind).step() != SQLITE_DONE && !persistent) return database_.code();
  }
  found = there && persistent;
  return 0;
}

cerrno checkpoint_store::find(uint32_t kind, uint32_t key, uint64_t &id) {
  sqlite_use use(find_);
  const int rc = use->bind(kind).bind(key).step();
  if (rc == SQLITE_DONE) return ENOENT;
  if (rc != SQLITE_ROW) return database_.code();
  id = use->number(0);
  return 0;
}

cerrno checkpoint_store::create(uint32_t kind, uint32_t key, uint64_t &id) {
  sqlite_use use(create_);
  if (use->bind(kind).bind(key).step() != SQLITE_DONE) return database_.code();
  id = static_cast<uint64_t>(database_.last_insert_id());
  return 0;
}

cerrno checkpoint_store::load(uint32_t kind, uint64_t id, uint32_t version,
                              std::span<std::byte> buffer) {
  sqlite_use use(load_);
  const int rc = use->bind(kind).bind(id).step();
  if (rc == SQLITE_DONE) return ENOENT;
  if (rc != SQLITE_ROW) return database_.code();
  if (use->is_null(2)) return ENODATA;
  const std::span<const std::byte> data = use->bytes(2);
  if (use->number(0) != version || data.size() != buffer.size()) return EBADMSG;
  if (use->number(1) != checksum(data)) return EBADMSG;
  std::copy(data.begin(), data.end(), buffer.begin());
  return 0;
}

cerrno checkpoint_store::save(uint32_t kind, uint64_t id, uint32_t version,
                              std::span<const std::byte> data) {
  sqlite_use use(save_);
  use->bind(version).bind(checksum(data)).bind(data).bind(kind).bind(id);
  if (use->step() != SQLITE_DONE) return database_.code();
  return database_.changed_rows() == 1 ? 0 : ENOENT;
}

cerrno checkpoint_store::remove(uint32_t kind, uint64_t id) {
  sqlite_use use(remove_);
  if (use->bind(kind).bind(id).step() != SQLITE_DONE) return database_.code();
  return database_.changed_rows() == 1 ? 0 : ENOENT;
}

cerrno checkpoint_store::next(uint32_t kind, uint64_t after, uint64_t &id) {
  sqlite_use use(next_);
  const int rc = use->bind(kind).bind(after).step();
  if (rc != SQLITE_ROW && rc != SQLITE_DONE) return database_.code();
  id = rc == SQLITE_ROW ? use->number(0) : 0;
  return 0;
}

uint64_t checkpoint_store::entries() {
  sqlite_use use(count_);
  return use->step() == SQLITE_ROW ? use->number(0) : 0;
}

}  // namespace lum_linux
