// The tables of the record, as rows of a database. All throw SQLite::Exception, and std::bad_alloc.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstddef>
#include <span>
#include <vector>

#include "records/record.h"

namespace lumd {

// Since the epoch; moments beyond do not fit every clock.
inline constexpr int64_t latest_second = int64_t{1} << 33;

inline constexpr const char *event_tables =
    "CREATE TABLE numbers(next INTEGER NOT NULL, closed INTEGER NOT NULL);"
    "INSERT INTO numbers VALUES(1, 1);"
    "CREATE TABLE events(number INTEGER PRIMARY KEY, time INTEGER NOT NULL, severity INTEGER"
    " NOT NULL, kind TEXT NOT NULL, port TEXT NOT NULL, sub_port INTEGER, text TEXT NOT NULL,"
    " details TEXT NOT NULL, left_out INTEGER NOT NULL);";
std::vector<event> read_events(SQLite::Database &database, std::size_t most);
// Above every number that may have been given out.
uint64_t next_number(SQLite::Database &database);
// Drops all but the latest `most`.
void write_events(SQLite::Database &database, const record_change &change, std::size_t most);

// Readings and bins, which a process can do without.
inline constexpr const char *history_tables =
    "CREATE TABLE samples(rsip INTEGER NOT NULL, time INTEGER NOT NULL, samples BLOB NOT NULL,"
    " PRIMARY KEY(rsip, time)) WITHOUT ROWID;"
    "CREATE TABLE bins(name TEXT NOT NULL, length INTEGER NOT NULL, start INTEGER NOT NULL,"
    " samples INTEGER NOT NULL, partial INTEGER NOT NULL, tested INTEGER NOT NULL,"
    " numbers BLOB NOT NULL, PRIMARY KEY(name, length, start)) WITHOUT ROWID;";
std::vector<sample_block> read_samples(SQLite::Database &database);
void write_samples(SQLite::Database &database, std::span<const sample_block> blocks);
std::vector<lum_linux::pm_kept_bin> read_bins(SQLite::Database &database);
void write_bins(SQLite::Database &database, const lum_linux::pm_unkept &change);

}  // namespace lumd
