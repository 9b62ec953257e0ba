#include "records/event_codec.h"
#include "records/record_tables.h"

#include <algorithm>

namespace lumd {
namespace {

using std::chrono::milliseconds;

// So many numbers may have been given out by a process that was cut off before it noted them.
constexpr int64_t unnoted_numbers = 10000;

severity severity_from(int number) {
  for (const auto &one : lum_words::severities) {
    if (static_cast<int>(one.id) == number) return one.id;
  }
  return severity::unknown;
}

}  // namespace

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
    const int64_t time = all.getColumn(1).getInt64();
    one.time = std::chrono::system_clock::time_point(
        milliseconds(std::clamp(time, int64_t{0}, latest_second * 1000)));
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

uint64_t next_number(SQLite::Database &database) {
  const int64_t noted = database.execAndGet("SELECT next FROM numbers").getInt64();
  const int64_t used = database.execAndGet("SELECT ifnull(max(number), 0) FROM events").getInt64();
  const bool closed = database.execAndGet("SELECT closed FROM numbers").getInt() != 0;
  return static_cast<uint64_t>(std::max({int64_t{1}, noted, used + 1}) +
                               (closed ? 0 : unnoted_numbers));
}

void write_events(SQLite::Database &database, const record_change &change, std::size_t most) {
  SQLite::Statement insert(database, "INSERT OR REPLACE INTO events VALUES(?,?,?,?,?,?,?,?,?)");
  for (const event &one : change.events) {
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
  SQLite::Statement note(database, "UPDATE numbers SET next=?, closed=?");
  note.bind(1, static_cast<int64_t>(change.next));
  note.bind(2, change.is_last ? 1 : 0);
  note.exec();
  SQLite::Statement drop(database,
                         "DELETE FROM events WHERE number <= (SELECT number FROM events ORDER BY"
                         " number DESC LIMIT 1 OFFSET ?)");
  drop.bind(1, static_cast<int64_t>(most));
  drop.exec();
}

}  // namespace lumd
