// Why no driver answers, and what to do about it.
#pragma once

#include <chrono>
#include <string>
#include <system_error>

#include "api/destination.h"

namespace lumctl {

// In one line. `error` is what the attempt to open the socket, to ask and to read has come to, and
// `patience` how long the answer was waited for.
std::string why_no_driver(const std::string &socket, const std::error_code &error,
                          std::chrono::milliseconds patience);

// What answers is no driver: `why` says what is wrong with the answer.
std::string why_no_answer(const destination &driver, const std::string &why);

}  // namespace lumctl
