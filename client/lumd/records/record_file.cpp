#include "records/record_file.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <system_error>

#include "records/event_codec.h"

namespace lumd {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr int patience_ms = 100;  // with whoever looks into the file with a tool of their own
const int to_change = SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOFOLLOW;
const int to_read = SQLite::OPEN_READONLY | SQLite::OPEN_NOFOLLOW;

// What marks a database as one of these ("LUMR"), and the version of its tables.
constexpr int file_mark = 1280658770;
constexpr int file_version = 1;
constexpr const char *schema =
    "BEGIN IMMEDIATE;"
    "PRAGMA application_id=1280658770;"
    "PRAGMA user_version=1;"
    "CREATE TABLE numbers(next INTEGER NOT NULL, closed INTEGER NOT NULL);"
    "INSERT INTO numbers VALUES(1, 1);"
    "CREATE TABLE events(number INTEGER PRIMARY KEY, time INTEGER NOT NULL, severity INTEGER"
    " NOT NULL, kind TEXT NOT NULL, port TEXT NOT NULL, sub_port INTEGER, text TEXT NOT NULL,"
    " details TEXT NOT NULL, left_out INTEGER NOT NULL);"
    "COMMIT;";

// So many numbers may have been given out by a process that was cut off before it noted them.
constexpr int64_t unnoted_numbers = 10000;

// A file of another kind or version; it is treated as a damaged one.
struct not_ours : std::runtime_error {
  not_ours() : std::runtime_error("it is no record of events of this version") {}
};

bool tells_of_damage(const SQLite::Exception &failure) {
  const int code = failure.getErrorCode() & 0xff;
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

// What nobody can read is of use only to whoever wants to know why.
void put_aside(const fs::path &file) {
  std::error_code ignored;
  fs::rename(file, file.native() + ".damaged", ignored);
  for (const char *ending : {"", "-wal", "-shm"}) fs::remove(file.native() + ending, ignored);
}

std::string why_no_room(const fs::path &file) {
  std::error_code unknown;
  const auto space = fs::space(file.parent_path(), unknown);
  if (unknown || space.available >= record_file::room_for_others) return {};
  return fmt::format("the disk of {} is full but for {} bytes, which are left to the settings",
                     file.parent_path().native(), space.available);
}

void check_kind(SQLite::Database &database, bool may_set_up) {
  const bool is_empty = database.execAndGet("SELECT count(*) FROM sqlite_master").getInt() == 0;
  if (is_empty && may_set_up) database.exec(schema);
  if (database.execAndGet("PRAGMA application_id").getInt() != file_mark ||
      database.execAndGet("PRAGMA user_version").getInt() != file_version) {
    throw not_ours();
  }
}

severity severity_from(int number) {
  for (const auto &one : lum_words::severities) {
    if (static_cast<int>(one.id) == number) return one.id;
  }
  return severity::unknown;
}

std::vector<event> read_events(SQLite::Database &database, std::size_t most) {
  SQLite::Statement all(database,
                        "SELECT * FROM (SELECT number, time, severity, kind, port, sub_port, text,"
                        " details, left_out FROM events ORDER BY number DESC LIMIT ?)"
                        " ORDER BY number");
  all.bind(1, static_cast<int64_t>(most));
  std::vector<event> events;
  while (all.executeStep()) {
    event one;
    one.number = static_cast<uint64_t>(all.getColumn(0).getInt64());
    one.time = std::chrono::system_clock::time_point(milliseconds(all.getColumn(1).getInt64()));
    one.how_bad = severity_from(all.getColumn(2).getInt());
    one.kind = all.getColumn(3).getString();
    one.port = all.getColumn(4).getString();
    if (!all.getColumn(5).isNull()) one.sub_port = all.getColumn(5).getUInt();
    one.text = all.getColumn(6).getString();
    one.details = decode_details(all.getColumn(7).getString());
    one.left_out = static_cast<uint64_t>(all.getColumn(8).getInt64());
    events.push_back(std::move(one));
  }
  return events;
}

// As the text of the columns and the number of the process before say; nothing is below 1.
uint64_t next_number(SQLite::Database &database) {
  const int64_t noted = database.execAndGet("SELECT next FROM numbers").getInt64();
  const int64_t used = database.execAndGet("SELECT ifnull(max(number), 0) FROM events").getInt64();
  const bool closed = database.execAndGet("SELECT closed FROM numbers").getInt() != 0;
  return static_cast<uint64_t>(std::max({int64_t{1}, noted, used + 1}) +
                               (closed ? 0 : unnoted_numbers));
}

void insert_events(SQLite::Database &database, std::span<const event> events) {
  SQLite::Statement insert(database, "INSERT OR REPLACE INTO events VALUES(?,?,?,?,?,?,?,?,?)");
  for (const event &one : events) {
    insert.reset();
    insert.bind(1, static_cast<int64_t>(one.number));
    insert.bind(2, std::chrono::duration_cast<milliseconds>(one.time.time_since_epoch()).count());
    insert.bind(3, static_cast<int>(one.how_bad));
    insert.bind(4, one.kind);
    insert.bind(5, one.port);
    if (one.sub_port) {
      insert.bind(6, *one.sub_port);
    } else {
      insert.bind(6);
    }
    insert.bind(7, one.text);
    insert.bind(8, encode_details(one.details));
    insert.bind(9, static_cast<int64_t>(one.left_out));
    insert.exec();
  }
}

}  // namespace

struct record_file::connection {
  connection(const fs::path &file, int flags) : database(file.native(), flags, patience_ms) {
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
  result.events = read_events(database, most_events_);
  result.next = next_number(database);
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
    } catch (const not_ours &) {
      if (flags == to_read) return result;
      made.reset();
      put_aside(file);
    } catch (const SQLite::Exception &failure) {
      if (result.problem.empty()) {
        result.problem = fmt::format("{}: {}", file.native(), failure.what());
      }
      if (flags == to_read) return result;
      made.reset();
      if (tells_of_damage(failure)) {
        put_aside(file);
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

std::string record_file::write(std::span<const event> events, uint64_t next, bool is_last) {
  if (auto why = why_no_room(file_); !why.empty()) return why;
  try {
    SQLite::Database &database = connection_->database;
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    insert_events(database, events);
    SQLite::Statement note(database, "UPDATE numbers SET next=?, closed=?");
    note.bind(1, static_cast<int64_t>(next));
    note.bind(2, is_last ? 1 : 0);
    note.exec();
    SQLite::Statement drop(database,
                           "DELETE FROM events WHERE number <= (SELECT number FROM events ORDER BY"
                           " number DESC LIMIT 1 OFFSET ?)");
    drop.bind(1, static_cast<int64_t>(most_events_));
    drop.exec();
    transaction.commit();
    return {};
  } catch (const SQLite::Exception &failure) {
    return fmt::format("{}: {}", file_.native(), failure.what());
  }
}

}  // namespace lumd
