// Disks that may not answer, such as a network's file system whose server is gone: whoever opens a
// file on one waits in the kernel for good.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>

namespace lum_linux {

// Runs `work` on a thread of its own and waits for its end, up to `bound`. Says whether it has
// ended; if not it is left behind, so it must own what it uses. `work` must not throw. May throw
// std::system_error when there is no thread, and std::bad_alloc.
bool ends_within(std::chrono::milliseconds bound, std::function<void()> work);

// Whether the disk of a folder answers, if only with a refusal: makes the folder when it is not
// there and looks into it. Waits for that up to two seconds, and not again while an earlier look at
// the folder, or at one above it, has not ended. May be called by any thread.
bool folder_answers(const std::filesystem::path &folder);

// As above with no more than a look at what is there.
bool place_answers(const std::filesystem::path &path);

// Whether such a look has not ended yet. Waits for nothing but a short lock.
bool folder_is_waited_for(const std::filesystem::path &folder);

}  // namespace lum_linux
