// The files of a database: what the system says of them, and how they are put aside.
#pragma once

#include <filesystem>

namespace lum_linux {

// Makes a rename or a new file in the folder survive a crash of the machine.
void sync_folder(const std::filesystem::path &folder);

// The system's error of opening or creating the file, 0 when it opens.
int error_of_opening(const std::filesystem::path &file);

// Renames a database after the present time; its write-ahead log and the journal of its
// changes go along, under the names that fit. Returns the new name, or an empty path with errno set
// when the file cannot be renamed.
std::filesystem::path set_aside(const std::filesystem::path &file);

}  // namespace lum_linux
