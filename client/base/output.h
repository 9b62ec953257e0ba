// Standard output, of which nothing gets lost unnoticed.
#pragma once

#include <string_view>

namespace lum_client {

// Writes all of the text at once. A reader that has gone ends the process as SIGPIPE does, without
// a word; whatever else stands against it is thrown as a std::system_error that says so.
void print(std::string_view text);

// Writes the text to standard error, as far as that takes it.
void complain(std::string_view text);

}  // namespace lum_client
