// The database that events, readings and bins are kept in: a file of its own beside the checkpoint
// store, so that nothing recorded ever makes a setting wait. It may lose its latest second when the
// machine goes down, and gives way when the disk fills up.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "records/record.h"

namespace lumd {

// One thread at a time.
class record_file {
 public:
  // So much of the disk is left to others.
  static constexpr std::uintmax_t room_for_others = std::uintmax_t{512} * 1024;

  struct opened {
    std::unique_ptr<record_file> file;  // null when it cannot be used
    std::string problem;                // why, or why nothing can be kept in it; else empty
    std::string put_aside;              // why what was there is now FILE.damaged; else empty
    bool was_read = false;              // `held` is all that there is
    kept_record held;
  };

  // Opens the file, creating it when there is none. One that is damaged is put aside as
  // FILE.damaged, in place of an earlier one. Waits for the disk. May throw std::bad_alloc.
  static opened open(const std::filesystem::path &file, std::size_t most_events);

  ~record_file();
  record_file(const record_file &) = delete;
  record_file &operator=(const record_file &) = delete;

  // Takes in all of the change or nothing, and drops what is too old. Returns why it could not, or
  // nothing. May throw std::bad_alloc.
  std::string take(const record_change &change);

  // Whether the file has been moved or removed: what is added to it is lost with it.
  bool is_gone() const;

 private:
  struct connection;
  record_file(std::filesystem::path file, std::size_t most_events);
  void begin(opened &result, int flags);

  const std::filesystem::path file_;
  const std::size_t most_events_;
  std::unique_ptr<connection> connection_;
};

}  // namespace lumd
