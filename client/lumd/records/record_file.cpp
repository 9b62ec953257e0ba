#include "records/record_file.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <new>
#include <stdexcept>
#include <system_error>

#include "lum_linux/database_change.h"
#include "records/record_tables.h"

namespace lumd {
namespace {

namespace fs = std::filesystem;

constexpr int patience_ms = 100;  // with whoever looks into the file with a tool of their own
const int to_change = SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOFOLLOW;
const int to_read = SQLite::OPEN_READONLY | SQLite::OPEN_NOFOLLOW | SQLite::OPEN_URI;

// What marks a database as one of these ("LUMR"), and the version of its tables.
constexpr int file_mark = 1280658770;
constexpr int file_version = 2;
constexpr int version_without_history = 1;

// A file of another kind or version; it is treated as a damaged one.
struct not_ours : std::runtime_error {
  not_ours() : std::runtime_error("it is no record of this version") {}
};

bool tells_of_damage(const SQLite::Exception &failure) {
  const int code = failure.getErrorCode() & 0xff;
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

// What nobody can read is of use only to whoever wants to know why. Returns whether it is out of
// the way.
bool put_aside(const fs::path &file) {
  std::error_code ignored;
  fs::rename(file, file.native() + ".damaged", ignored);
  for (const char *ending : {"", "-wal", "-shm"}) fs::remove(file.native() + ending, ignored);
  return !fs::exists(file, ignored);
}

std::string words_for(const fs::path &file, const char *why) {
  return fmt::format("{}; it is now {}.damaged", why, file.native());
}

// A database whose log has been merged can be read where nothing can be written too, as one that
// nobody changes.
std::string name_to_open(const fs::path &file, int flags) {
  std::error_code unknown;
  if (flags != to_read || fs::exists(file.native() + "-wal", unknown)) return file.native();
  std::string uri = "file:";
  for (const char c : file.native()) {
    const bool is_plain = c != '%' && c != '?' && c != '#';
    uri += is_plain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return uri + "?immutable=1";
}

std::string why_no_room(const fs::path &file) {
  std::error_code unknown;
  const auto space = fs::space(file.parent_path(), unknown);
  if (unknown || space.available >= record_file::room_for_others) return {};
  return fmt::format("the disk of {} is full but for {} bytes, which are left to the settings",
                     file.parent_path().native(), space.available);
}

int version_of(SQLite::Database &database) {
  return database.execAndGet("PRAGMA user_version").getInt();
}

void set_up(SQLite::Database &database, const std::string &tables) {
  database.exec("BEGIN IMMEDIATE");
  const lum_linux::database_change whole(database.getHandle());
  database.exec(tables + fmt::format("PRAGMA application_id={};PRAGMA user_version={}", file_mark,
                                     file_version));
  database.exec("COMMIT");
}

void check_kind(SQLite::Database &database, bool may_change) {
  const bool is_empty = database.execAndGet("SELECT count(*) FROM sqlite_master").getInt() == 0;
  if (is_empty && may_change) set_up(database, std::string(event_tables) + history_tables);
  const int version = version_of(database);
  const bool is_ours = database.execAndGet("PRAGMA application_id").getInt() == file_mark;
  if (!is_ours || (version != file_version && version != version_without_history)) throw not_ours();
  if (version == version_without_history && may_change) set_up(database, history_tables);
}

kept_record read_all(SQLite::Database &database, std::size_t most_events) {
  kept_record all;
  all.events = read_events(database, most_events);
  all.next = next_number(database);
  if (version_of(database) == version_without_history) return all;
  all.samples = read_samples(database);
  all.bins = read_bins(database);
  return all;
}

}  // namespace

struct record_file::connection {
  connection(const fs::path &file, int flags)
      : database(name_to_open(file, flags), flags, patience_ms) {
    database.exec("PRAGMA locking_mode=EXCLUSIVE");
  }

  SQLite::Database database;
  struct stat found = {};  // of the file, as it was opened
};

record_file::record_file(fs::path file, std::size_t most_events)
    : file_(std::move(file)), most_events_(most_events) {}

record_file::~record_file() = default;

// Throws when the file cannot be used with these flags.
void record_file::begin(opened &result, int flags) {
  const bool may_change = (flags & SQLite::OPEN_READWRITE) != 0;
  connection_ = std::make_unique<connection>(file_, flags);
  SQLite::Database &database = connection_->database;
  check_kind(database, may_change);
  if (may_change) {
    database.exec("PRAGMA journal_mode=WAL");
    database.exec("PRAGMA synchronous=NORMAL");
  }
  result.held = read_all(database, most_events_);
  result.was_read = true;
  if (may_change) database.exec("UPDATE numbers SET closed=0");
  ::stat(file_.c_str(), &connection_->found);
}

record_file::opened record_file::open(const fs::path &file, std::size_t most_events) {
  opened result;
  result.problem = why_no_room(file);
  for (int flags = result.problem.empty() ? to_change : to_read;;) {
    std::unique_ptr<record_file> made(new record_file(file, most_events));
    try {
      made->begin(result, flags);
      if (flags == to_change) result.file = std::move(made);
      return result;
    } catch (const not_ours &wrong) {
      if (flags == to_read) return result;
      made.reset();
      if (!put_aside(file)) {
        result.problem = fmt::format("{}: {}", file.native(), wrong.what());
        return result;
      }
      result.put_aside = words_for(file, wrong.what());
    } catch (const SQLite::Exception &failure) {
      if (result.problem.empty()) {
        result.problem = fmt::format("{}: {}", file.native(), failure.what());
      }
      if (flags == to_read) return result;
      made.reset();
      if (tells_of_damage(failure)) {
        if (!put_aside(file)) return result;
        result.put_aside = words_for(file, failure.what());
        result.problem.clear();
      } else {
        flags = to_read;
      }
    }
  }
}

bool record_file::is_gone() const {
  struct stat now = {};
  return ::stat(file_.c_str(), &now) != 0 || now.st_ino != connection_->found.st_ino ||
         now.st_dev != connection_->found.st_dev;
}

std::string record_file::take(const record_change &change) {
  if (auto why = why_no_room(file_); !why.empty()) return why;
  try {
    SQLite::Database &database = connection_->database;
    if (!lum_linux::undo_change(database.getHandle())) throw std::bad_alloc();
    database.exec("BEGIN IMMEDIATE");
    const lum_linux::database_change whole(database.getHandle());
    write_events(database, change, most_events_);
    write_samples(database, change.samples);
    write_bins(database, change.bins);
    database.exec("COMMIT");
    return {};
  } catch (const SQLite::Exception &failure) {
    return fmt::format("{}: {}", file_.native(), failure.what());
  }
}

}  // namespace lumd
