// Looking something up in what may be asked of other machines, such as names and users.
#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace lumctl {

// What `look` returns, or nothing when it has not returned within `bound`: it is left behind then,
// so all that it uses has to be its own. Without a thread for it, it is waited for.
template <typename Look>
auto look_up_within(std::chrono::milliseconds bound, Look look) -> std::optional<decltype(look())> {
  using result = decltype(look());
  std::packaged_task<result()> task(look);
  std::future<result> found = task.get_future();
  try {
    std::thread(std::move(task)).detach();
  } catch (const std::system_error &) {
    return look();
  }
  if (found.wait_for(bound) != std::future_status::ready) return std::nullopt;
  return found.get();
}

}  // namespace lumctl
