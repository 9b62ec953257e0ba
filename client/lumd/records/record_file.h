// The database that what has happened is kept in: a file of its own beside the checkpoint store, so
// that nothing recorded ever makes a setting wait. It may lose its latest second when the machine
// goes down, and gives way when the disk fills up.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "records/event.h"

namespace lumd {

// One thread at a time.
class record_file {
 public:
  // So much of the disk is left to others.
  static constexpr std::uintmax_t room_for_others = std::uintmax_t{512} * 1024;

  struct opened {
    std::unique_ptr<record_file> file;  // null when it cannot be used
    std::string problem;                // why, or why nothing can be kept in it; else empty
    std::vector<event> events;          // those it holds, the earliest first
    uint64_t next = 1;                  // number that no event has had
  };

  // Opens the file, creating it when there is none. One that is damaged is put aside as
  // FILE.damaged, in place of an earlier one. Waits for the disk. May throw std::bad_alloc.
  static opened open(const std::filesystem::path &file, std::size_t most_events);

  ~record_file();
  record_file(const record_file &) = delete;
  record_file &operator=(const record_file &) = delete;

  // Adds events, drops all but the latest `most_events`, and notes the number of the next. Returns
  // why it could not, or nothing. May throw std::bad_alloc.
  std::string add(std::span<const event> events, uint64_t next) {
    return write(events, next, false);
  }

  // As add(), for the last time: no number has been given out that is not noted.
  std::string close(std::span<const event> events, uint64_t next) {
    return write(events, next, true);
  }

  // Whether the file has been moved or removed: what is added to it is lost with it.
  bool is_gone() const;

 private:
  struct connection;
  record_file(std::filesystem::path file, std::size_t most_events);
  void begin(opened &result, int flags);
  std::string write(std::span<const event> events, uint64_t next, bool is_last);

  const std::filesystem::path file_;
  const std::size_t most_events_;
  std::unique_ptr<connection> connection_;
};

}  // namespace lumd
