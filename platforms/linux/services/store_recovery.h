// What of a store's records did not outlive the process before.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "services/change_journal.h"
#include "services/store_sql.h"

namespace lum_linux {

struct lost_record {
  record_key record;
  std::string reason;  // goes on after the record's name
};

struct store_findings {
  std::vector<lost_record> lost;
  std::vector<record_key> undeleted;    // deleted as the journal says, and still there
  std::optional<store_change> unnoted;  // a deletion that the journal does not know of
  uint64_t last_change = 0;             // the highest number that the store or the journal knows
};

// Looks through all records of a store, and for the latest changes that its journal knows of.
// Throws SQLite::Exception.
store_findings examine_store(const SQLite::Database &database, const journal_contents &journal);

// What was lost with a whole store, as far as its journal knows.
std::vector<lost_record> records_of(const journal_contents &journal, const std::string &reason);

}  // namespace lum_linux
