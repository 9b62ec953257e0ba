// The files of a database: what the system says of them, and how they are put aside.
#pragma once

#include <filesystem>
#include <string>

namespace lum_linux {

// Makes a rename or a new file in the folder survive a crash of the machine.
void sync_folder(const std::filesystem::path &folder);

// The system's error of opening or creating the file, 0 when it opens.
int error_of_opening(const std::filesystem::path &file);

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
