// The thread that looks after the checkpoint store.
#pragma once

#include <chrono>
#include <memory>

namespace lum_linux {

class store_keeper {
 public:
  // Calls checkpoints_tend() every few seconds. Throws std::system_error when there is no thread to
  // be had; may throw std::bad_alloc.
  store_keeper();
  // As stop() with its default bound.
  ~store_keeper();
  store_keeper(const store_keeper &) = delete;
  store_keeper &operator=(const store_keeper &) = delete;

  // Ends the thread. Returns false when it still waited for the disk after `bound`; it is then left
  // behind.
  bool stop(std::chrono::milliseconds bound = std::chrono::milliseconds(500));

 private:
  struct core;
  std::shared_ptr<core> core_;  // shared with the thread
};

}  // namespace lum_linux
