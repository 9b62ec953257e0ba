// The files through which the kernel shows a board's lines: a GPIO's, or whatever a driver has.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "cerr.h"

namespace lum_linux {

// What the file holds, but for blanks around it. Returns the errno of a file that cannot be read,
// EIO for what is no file. Never waits for what stands in the file's place.
cerrno read_line_file(const std::filesystem::path &file, std::string &text);
cerrno write_line_file(const std::filesystem::path &file, std::string_view text);

}  // namespace lum_linux
