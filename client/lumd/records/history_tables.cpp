#include <cstring>

#include "records/record_tables.h"

namespace lumd {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

// A block is of ten minutes at most.
constexpr std::chrono::minutes slack(15);

// Of what is in the future so much is left: the clock may stand wrong only now.
constexpr int most_later_blocks = 300;  // of a port

int64_t ms_of(system_clock::time_point time) {
  return std::chrono::floor<milliseconds>(time.time_since_epoch()).count();
}

// A blob of values; empty when it is no whole number of them.
template <typename Value>
std::vector<Value> values_in(const SQLite::Column &blob) {
  const auto bytes = static_cast<std::size_t>(blob.getBytes());
  if (bytes == 0 || bytes % sizeof(Value) != 0) return {};
  std::vector<Value> values(bytes / sizeof(Value));
  std::memcpy(values.data(), blob.getBlob(), bytes);
  return values;
}

using pm_numbers = std::array<lum_linux::pm_statistics, lum_linux::pm_value_count>;
static_assert(sizeof(pm_numbers) == 24 * lum_linux::pm_value_count);

}  // namespace

std::vector<sample_block> read_samples(SQLite::Database &database) {
  SQLite::Statement all(database, "SELECT rsip, time, samples FROM samples ORDER BY rsip, time");
  std::vector<sample_block> blocks;
  while (all.executeStep()) {
    sample_block block;
    block.rsip = all.getColumn(0).getUInt();
    const int64_t begun = all.getColumn(1).getInt64();
    if (begun < 0 || begun / 1000 > latest_second) continue;
    block.begun = system_clock::time_point(milliseconds(begun));
    block.samples = values_in<reading_sample>(all.getColumn(2));
    blocks.push_back(std::move(block));
  }
  return blocks;
}

void write_samples(SQLite::Database &database, std::span<const sample_block> blocks) {
  if (blocks.empty()) return;
  SQLite::Statement insert(database, "INSERT OR REPLACE INTO samples VALUES(?,?,?)");
  for (const sample_block &block : blocks) {
    insert.reset();
    insert.bind(1, block.rsip);
    insert.bind(2, ms_of(block.begun));
    insert.bindNoCopy(3, block.samples.data(),
                      static_cast<int>(block.samples.size() * sizeof(reading_sample)));
    insert.exec();
  }
  const auto now = system_clock::now();
  SQLite::Statement drop(
      database,
      "DELETE FROM samples WHERE time < ? OR (rsip, time) IN (SELECT rsip, time FROM"
      " (SELECT rsip, time, row_number() OVER (PARTITION BY rsip ORDER BY time) AS place FROM"
      " samples WHERE time > ?) WHERE place > ?)");
  drop.bind(1, ms_of(now - reading_history::span - slack));
  drop.bind(2, ms_of(now + slack));
  drop.bind(3, most_later_blocks);
  drop.exec();
}

std::vector<lum_linux::pm_kept_bin> read_bins(SQLite::Database &database) {
  SQLite::Statement all(database,
                        "SELECT name, length, start, samples, partial, tested, numbers FROM bins");
  std::vector<lum_linux::pm_kept_bin> bins;
  while (all.executeStep()) {
    lum_linux::pm_kept_bin one;
    one.name = all.getColumn(0).getString();
    one.bin.length = seconds(all.getColumn(1).getInt64());
    const int64_t start = all.getColumn(2).getInt64();
    if (start < 0 || start > latest_second) continue;
    one.bin.start = system_clock::time_point(seconds(start));
    one.bin.samples = static_cast<uint64_t>(all.getColumn(3).getInt64());
    one.bin.partial = all.getColumn(4).getInt() != 0;
    one.bin.tested = all.getColumn(5).getInt() != 0;
    const auto numbers = values_in<pm_numbers>(all.getColumn(6));
    if (numbers.size() != 1) continue;
    one.bin.values = numbers.front();
    bins.push_back(std::move(one));
  }
  return bins;
}

void write_bins(SQLite::Database &database, const lum_linux::pm_unkept &change) {
  SQLite::Statement remove(database, "DELETE FROM bins WHERE name=?");
  for (const std::string &name : change.deleted) {
    remove.reset();
    remove.bind(1, name);
    remove.exec();
  }
  if (change.bins.empty()) return;
  SQLite::Statement insert(database, "INSERT OR REPLACE INTO bins VALUES(?,?,?,?,?,?,?)");
  for (const auto &[name, bin] : change.bins) {
    insert.reset();
    insert.bindNoCopy(1, name);
    insert.bind(2, static_cast<int64_t>(bin.length.count()));
    insert.bind(
        3, static_cast<int64_t>(std::chrono::floor<seconds>(bin.start.time_since_epoch()).count()));
    insert.bind(4, static_cast<int64_t>(bin.samples));
    insert.bind(5, bin.partial ? 1 : 0);
    insert.bind(6, bin.tested ? 1 : 0);
    insert.bindNoCopy(7, bin.values.data(), static_cast<int>(sizeof(pm_numbers)));
    insert.exec();
  }
  // The current one, and as many as are remembered.
  SQLite::Statement drop(
      database,
      "DELETE FROM bins WHERE (name, length, start) IN (SELECT name, length, start FROM"
      " (SELECT name, length, start, row_number() OVER (PARTITION BY name, length, start > ?"
      " ORDER BY start DESC) AS place FROM bins) WHERE place > CASE length WHEN ? THEN ? ELSE ?"
      " END)");
  drop.bind(1, ms_of(system_clock::now()) / 1000);
  drop.bind(2, static_cast<int64_t>(lum_linux::pm_short_bin.count()));
  drop.bind(3, static_cast<int64_t>(lum_linux::pm_short_history + 1));
  drop.bind(4, static_cast<int64_t>(lum_linux::pm_long_history + 1));
  drop.exec();
}

}  // namespace lumd
