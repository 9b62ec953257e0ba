// The file behind the checkpoint service: a SQLite database in WAL mode, synchronised at every
// commit, that one process at a time has open. Not thread-safe: the service serialises.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

#include "cerr.h"
#include "services/store_schema.h"

namespace lum_linux {

class checkpoint_store {
 public:
  struct opened {
    std::unique_ptr<checkpoint_store> store;  // null when `code` is not 0
    cerrno code = 0;
    std::string failure;
    std::filesystem::path set_aside;  // what a store that cannot be used was renamed to, or empty
    std::string set_aside_reason;
  };

  ~checkpoint_store();

  // Opens the store, creating it when there is none. A store that is damaged, or was written by
  // another application or version, and is so at a second look too, is renamed and a new one begun.
  // Whatever else goes wrong leaves the file as it is. May throw std::bad_alloc.
  static opened open(const std::filesystem::path &file, const store_owner &owner);

  // Makes the table known. `found` says whether it was there; entries without data are dropped, and
  // all of them when the table does not persist.
  cerrno add_table(uint32_t kind, bool persistent, bool &found);

  // Return 0, 2 when there is no such entry, or the store's code.
  cerrno find(uint32_t kind, uint32_t key, uint64_t &id);
  cerrno remove(uint32_t kind, uint64_t id);
  cerrno save(uint32_t kind, uint64_t id, uint32_t version, std::span<const std::byte> data);
  // As above, 61 for an entry without data, or 74 when the data are damaged, of another version or
  // not of the buffer's size.
  cerrno load(uint32_t kind, uint64_t id, uint32_t version, std::span<std::byte> buffer);
  // Returns 17 when the key has an entry.
  cerrno create(uint32_t kind, uint32_t key, uint64_t &id);
  // The first entry with data whose id is above `after`; 0 when there is none.
  cerrno next(uint32_t kind, uint64_t after, uint64_t &id);

  uint64_t entries();
  // Text of the latest failure.
  const std::string &failure_text() const { return failure_; }

 private:
  struct connection;  // the database and the statements for it

  checkpoint_store() = default;
  static opened open_once(const std::filesystem::path &file, const store_owner &owner);
  static cerrno look_at(const std::filesystem::path &file, const store_owner &owner, opened &result,
                        std::string &refused_for);
  void close_as_found();
  template <typename Call>
  cerrno attempt(Call call);

  std::unique_ptr<connection> connection_;
  std::string failure_;
};

}  // namespace lum_linux
