#include "services/store_sql.h"

#include <sqlite3.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <limits>
#include <string_view>

namespace lum_linux {
namespace {

// The result that a line of an integrity check tells of, when it is not about damage. The check
// gives what it could not read a line like any other, most with the result in it.
int failure_in(std::string_view line) {
  for (const std::string_view unread : {"failed to get page", "failed to read ptrmap"}) {
    if (line.find(unread) != std::string_view::npos) return SQLITE_IOERR;
  }
  constexpr std::string_view mark = "error code";
  for (size_t at = line.find(mark); at != std::string_view::npos; at = line.find(mark, at)) {
    at += mark.size() + 1;  // a blank or an equals sign
    if (at >= line.size()) break;
    int code = 0;
    const auto end = line.data() + line.size();
    if (std::from_chars(line.data() + at, end, code).ec == std::errc() && code != 0 &&
        !tells_of_damage(code)) {
      return code;
    }
  }
  return SQLITE_OK;
}

}  // namespace

cerrno code_of(int result, int system_error) {
  switch (result & 0xff) {
    case SQLITE_FULL:
      return ENOSPC;
    case SQLITE_IOERR:
      if (result == SQLITE_IOERR_NOMEM) return ENOMEM;
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

bool tells_of_damage(int result) {
  return (result & 0xff) == SQLITE_CORRUPT || (result & 0xff) == SQLITE_NOTADB;
}

std::optional<std::string> ask(const SQLite::Database &database, const char *question) {
  SQLite::Statement statement(database, question);
  if (!statement.executeStep()) return std::nullopt;
  return statement.getColumn(0).getText();
}

std::optional<uint64_t> ask_number(const SQLite::Database &database, const char *question) {
  SQLite::Statement statement(database, question);
  if (!statement.executeStep() || statement.isColumnNull(0)) return std::nullopt;
  return static_cast<uint64_t>(statement.getColumn(0).getInt64());
}

std::string complaint_of(const SQLite::Database &database) {
  SQLite::Statement check(database, "PRAGMA integrity_check(100)");
  std::string first;
  while (check.executeStep()) {
    const std::string line = check.getColumn(0).getText();
    if (line == "ok") continue;
    if (const int result = failure_in(line)) throw SQLite::Exception(line, result);
    if (first.empty()) first = line;
  }
  return first;
}

std::span<const std::byte> use::bytes(int column) const {
  const SQLite::Column found = statement_.getColumn(column);
  const auto *data = static_cast<const std::byte *>(found.getBlob());
  if (data == nullptr) return {};
  return {data, static_cast<size_t>(found.getBytes())};
}

void use::bind(int position, uint64_t value) {
  statement_.bind(position, static_cast<int64_t>(value));
}

void use::bind(int position, std::span<const std::byte> value) {
  if (value.size() > std::numeric_limits<int>::max()) {
    throw SQLite::Exception("more bytes than a record can have", SQLITE_TOOBIG);
  }
  // A null pointer would bind NULL instead of no bytes.
  const void *data = value.empty() ? "" : static_cast<const void *>(value.data());
  statement_.bindNoCopy(position, data, static_cast<int>(value.size()));
}

}  // namespace lum_linux
