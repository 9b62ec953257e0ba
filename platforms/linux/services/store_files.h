// The files of a database: what the system says of them, and how they are put aside.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace lum_linux {

// Makes a rename or a new file in the folder survive a crash of the machine.
void sync_folder(const std::filesystem::path &folder);

// The system's error of opening or creating the file, 0 when it opens.
int error_of_opening(const std::filesystem::path &file);

// What a file is known by, and how long it is; all 0 for one that is not there.
struct file_mark {
  dev_t device = 0;
  ino_t number = 0;
  off_t size = 0;
  bool is_same_file(const file_mark &other) const {
    return device == other.device && number == other.number;
  }
};
file_mark mark_of(const std::filesystem::path &file);

// Where SQLite keeps the latest changes of a database.
std::filesystem::path log_of(const std::filesystem::path &file);

// Whether a database is whole without a change: a rollback journal would have to be played back.
bool can_be_read_alone(const std::filesystem::path &file);

// SQLite's address of a database that this process can only read and that nobody else has open. Its
// write-ahead log is read with it; for that the connection has to lock exclusively.
std::string reading_address(const std::filesystem::path &file);

// Renames a database after the present time; its write-ahead log and the journal of its
// changes go along, under the names that fit. Returns the new name, or an empty path with errno set
// when the file cannot be renamed.
std::filesystem::path set_aside(const std::filesystem::path &file);

}  // namespace lum_linux
