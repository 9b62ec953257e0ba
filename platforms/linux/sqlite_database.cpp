#include "sqlite_database.h"

#include <cerrno>

namespace lum_linux {
namespace {

// How long to wait for a process that is just ending to let go of the database.
constexpr int busy_wait_ms = 2000;

}  // namespace

cerrno sqlite_database::open(const std::filesystem::path &file) {
  sqlite3 *handle = nullptr;
  const int rc =
      sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  handle_.reset(handle);
  if (handle == nullptr) return ENOMEM;
  sqlite3_extended_result_codes(handle, 1);
  if (rc != SQLITE_OK) return code();
  sqlite3_busy_timeout(handle, busy_wait_ms);
  return 0;
}

void sqlite_database::close(bool merge) {
  if (handle_ != nullptr && !merge) {
    sqlite3_db_config(handle_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  }
  handle_.reset();
}

cerrno sqlite_database::execute(const char *statements) {
  return sqlite3_exec(handle_.get(), statements, nullptr, nullptr, nullptr) == SQLITE_OK ? 0
                                                                                         : code();
}

std::optional<std::string> sqlite_database::query(const char *statement) {
  sqlite_statement prepared;
  if (prepare(statement, prepared) != 0 || prepared.step() != SQLITE_ROW) return std::nullopt;
  return prepared.text(0);
}

cerrno sqlite_database::prepare(const char *text, sqlite_statement &statement) {
  sqlite3_stmt *prepared = nullptr;
  const int rc =
      sqlite3_prepare_v3(handle_.get(), text, -1, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
  statement.handle_.reset(prepared);
  return rc == SQLITE_OK ? 0 : code();
}

cerrno sqlite_database::code() const {
  if (handle_ == nullptr) return ENOMEM;
  const int system_error = sqlite3_system_errno(handle_.get());
  switch (sqlite3_errcode(handle_.get()) & 0xff) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
      return 0;
    case SQLITE_FULL:
      return ENOSPC;
    case SQLITE_IOERR:
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

std::string sqlite_database::failure_text() const {
  return handle_ == nullptr ? "out of memory" : sqlite3_errmsg(handle_.get());
}

bool sqlite_database::damaged() const {
  const int result = handle_ == nullptr ? SQLITE_OK : sqlite3_errcode(handle_.get()) & 0xff;
  return result == SQLITE_CORRUPT || result == SQLITE_NOTADB;
}

sqlite_statement &sqlite_statement::bind(uint64_t value) {
  failure_ |=
      sqlite3_bind_int64(handle_.get(), next_parameter_++, static_cast<sqlite3_int64>(value));
  return *this;
}

sqlite_statement &sqlite_statement::bind(std::span<const std::byte> value) {
  // A null pointer would bind NULL instead of no bytes.
  const void *data = value.empty() ? "" : static_cast<const void *>(value.data());
  failure_ |=
      sqlite3_bind_blob64(handle_.get(), next_parameter_++, data, value.size(), SQLITE_STATIC);
  return *this;
}

std::span<const std::byte> sqlite_statement::bytes(int column) const {
  const void *data = sqlite3_column_blob(handle_.get(), column);
  const int size = sqlite3_column_bytes(handle_.get(), column);
  if (data == nullptr) return {};
  return {static_cast<const std::byte *>(data), static_cast<size_t>(size)};
}

std::string sqlite_statement::text(int column) const {
  const auto *data = reinterpret_cast<const char *>(sqlite3_column_text(handle_.get(), column));
  return data == nullptr ? std::string() : std::string(data);
}

void sqlite_statement::reset() {
  sqlite3_reset(handle_.get());
  sqlite3_clear_bindings(handle_.get());
  next_parameter_ = 1;
  failure_ = SQLITE_OK;
}

}  // namespace lum_linux
