// The latest changes of a checkpoint store, in a small file of fixed size beside it.
//
// A change is written to its place once the store has it, over the oldest one, so the file needs no
// room on the disk after it was made. It says which records changed last and not what they hold:
// a store that does not have these changes has lost them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>

#include "modules/unique_fd.h"
#include "services/store_record.h"

namespace lum_linux {

struct store_change {
  uint64_t number = 0;  // counted by the store, from 1
  record_key record;
  bool deleted = false;  // else saved
};

// What a journal holds.
struct journal_contents {
  bool found = false;     // there is one, and it says whose it is
  uint64_t store = 0;     // the store it belongs to
  bool closed = false;    // it was closed with nothing left to note
  uint64_t last = 0;      // the highest number
  size_t last_place = 0;  // where that stands
  std::map<record_key, store_change> latest;
  std::map<record_key, size_t> places;  // of the latest
};

// Not thread-safe.
class change_journal {
 public:
  static constexpr size_t places = 2047;  // changes it holds

  static journal_contents read(const std::filesystem::path &file);

  // Goes on with what was read when it is the store's, and else begins a new one. Returns 0 or the
  // system's error, also when it can be read and not written.
  int open(const std::filesystem::path &file, uint64_t store, const journal_contents &found);

  // Notes a change on the disk. Returns 0 or the system's error.
  int note(const store_change &change);

  // Keeps what is noted of the record until it is released.
  void keep(const record_key &record);
  void release(const record_key &record);
  bool keeps(const record_key &record) const { return kept_.contains(record); }

  // Notes that nothing is left to note.
  void close();

 private:
  int write(size_t place, const store_change &change, uint32_t what);
  size_t next_place() const;

  unique_fd file_;
  uint64_t store_ = 0;
  size_t last_place_ = 0;
  std::map<record_key, size_t> places_;  // of each record's latest change
  std::map<record_key, size_t> kept_;
};

// The journal's file of a store's.
std::filesystem::path journal_of(const std::filesystem::path &store_file);

}  // namespace lum_linux
