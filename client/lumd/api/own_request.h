// A request to the driver's own API, as anybody else would make it.
#pragma once

#include <chrono>
#include <filesystem>

namespace lumd {

// Whether a request through the socket is answered within about `bound`.
bool api_answers(const std::filesystem::path &socket, std::chrono::seconds bound);

}  // namespace lumd
