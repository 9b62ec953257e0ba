#include "services/store_recovery.h"

#include <algorithm>
#include <map>
#include <utility>

namespace lum_linux {
namespace {

constexpr const char *gone = "it is gone, and with it its latest change";

// The latest deletion, which the store itself remembers: the journal may not know of it yet.
struct last_deletion {
  uint64_t number = 0;
  record_key record;
};

last_deletion deletion_in(const SQLite::Database &database) {
  SQLite::Statement question(database,
                             "SELECT deletion, deleted_kind, deleted_key FROM application LIMIT 1");
  const use found(question);
  if (!found->executeStep()) return {};
  return {found.number(0),
          {static_cast<uint32_t>(found.number(1)), static_cast<uint32_t>(found.number(2))}};
}

// Why a row is no good; empty when it is whole.
std::string fault_of(const use &row, const record_key &record) {
  if (row->isColumnNull(5)) return "it has no data";
  const uint32_t expected =
      record_checksum(record, static_cast<uint32_t>(row.number(2)), row.number(3), row.bytes(5));
  if (row->isColumnNull(4) || row.number(4) != expected) return "its checksum is wrong";
  return {};
}

}  // namespace

store_findings examine_store(const SQLite::Database &database, const journal_contents &journal) {
  store_findings findings;
  std::map<record_key, std::pair<uint64_t, std::string>> rows;  // change and fault
  SQLite::Statement all(database,
                        "SELECT kind, key, version, change, checksum, data FROM entries"
                        " WHERE change IS NOT NULL OR data IS NOT NULL");
  const use row(all);
  while (row->executeStep()) {
    const record_key record = {static_cast<uint32_t>(row.number(0)),
                               static_cast<uint32_t>(row.number(1))};
    const uint64_t change = row.number(3);
    const std::string fault = fault_of(row, record);
    if (fault.empty()) findings.last_change = std::max(findings.last_change, change);
    rows[record] = {change, fault};
    if (!fault.empty()) findings.lost.push_back({record, fault});
  }
  const last_deletion deletion = deletion_in(database);
  for (const auto &[record, noted] : journal.latest) {
    const auto found = rows.find(record);
    if (found == rows.end()) {
      const bool deleted_later = deletion.record == record && deletion.number > noted.number;
      if (!noted.deleted && !deleted_later) findings.lost.push_back({record, gone});
    } else if (found->second.second.empty() && found->second.first < noted.number) {
      if (noted.deleted) {
        findings.undeleted.push_back(record);
      } else {
        findings.lost.push_back({record, "its latest change is gone, it is as it was before"});
      }
    }
  }
  if (deletion.number > journal.last) findings.unnoted = {deletion.number, deletion.record, true};
  findings.last_change = std::max({findings.last_change, deletion.number, journal.last});
  return findings;
}

std::vector<lost_record> records_of(const journal_contents &journal, const std::string &reason) {
  std::vector<lost_record> all;
  for (const auto &[record, change] : journal.latest) {
    if (!change.deleted) all.push_back({record, reason});
  }
  return all;
}

}  // namespace lum_linux
