// What the interface manager and its thread share: the waiting batches, the controllers, the
// faults.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "interface_manager/im_controllers.h"
#include "interface_manager/im_reply.h"
#include "lum_linux/interface_manager.h"

namespace lum_linux {

using im_clock = std::chrono::steady_clock;

// How one batch will go wrong; decided when it is accepted.
struct batch_fate {
  cerrno whole = 0;
  bool empty = false;
  im_malformation malformation = im_malformation::none;
};

struct im_batch {
  uint64_t sequence = 0;
  im_clock::time_point due;
  uint32_t operation = 0;
  uint32_t count = 0;
  std::vector<std::optional<std::string>> names;  // create, delete
  std::vector<uint32_t> handles;                  // update
  std::vector<uint8_t> payload;
  std::unique_ptr<im_reply> reply;
  std::vector<uint32_t> created;  // elements whose controllers are new; has room for all
  void *context = nullptr;
  imca_completion complete = nullptr;
  batch_fate fate;
  std::shared_ptr<im_batch_report> report;  // for an account; may be null
};

struct element_failure {
  std::unordered_map<std::string, cerrno> names;
  uint32_t nth = 0;
  cerrno nth_code = 0;
  uint32_t counted = 0;
};

struct fault_counter {
  uint32_t left = 0;
  bool take() {
    if (left == 0) return false;
    --left;
    return true;
  }
};

// Shared with the thread, which may outlive the manager when a completion does not come back.
class interface_manager::core : public std::enable_shared_from_this<core> {
 public:
  using milliseconds = std::chrono::milliseconds;

  explicit core(const im_options &options);
  ~core();
  void start();
  bool stop(milliseconds bound);

  cerrno accept(im_batch batch);
  static account *&account_of_this_thread();
  bool restart(pending what, milliseconds bound);
  bool wait_idle(milliseconds bound);

  // Calls `change` with the lock held and lets the thread look again.
  template <typename Change>
  void change(Change change) {
    {
      const std::lock_guard lock(mutex);
      change();
    }
    changed.notify_all();
  }

  mutable std::mutex mutex;  // guards everything below
  std::condition_variable changed;
  im_controllers controllers;
  im_statistics statistics;

  fault_counter refuse, drop, fail, empty, malform;
  cerrno refuse_code = 0;
  cerrno fail_code = 0;
  im_malformation malformation = im_malformation::none;
  element_failure elements;

  milliseconds delay_min, delay_max;
  std::mt19937 random;
  bool out_of_order = false;
  milliseconds window{20};
  bool held = false;

 private:
  using queue = std::deque<im_batch>;

  void run();
  void answer(std::unique_lock<std::mutex> &lock, const queue::iterator &chosen);
  queue::iterator choose(im_clock::time_point now, std::optional<im_clock::time_point> &wake);
  bool decide_fate(im_batch &batch);
  void name_elements(im_batch &batch) const;
  void carry_out(im_batch &batch);
  void fail_without_memory(im_batch &batch);
  static cerrno refused(const im_batch &batch, cerrno code);
  static void note_failure(const im_batch &batch, uint32_t element, cerrno code);
  cerrno update_element(im_batch &batch, uint32_t element);
  cerrno create_or_delete_element(im_batch &batch, uint32_t element);
  cerrno element_fault(const std::string &name);
  void drop_waiting();
  void forget_all();
  bool on_own_thread() const { return std::this_thread::get_id() == thread_id_; }

  queue waiting_;  // in the order of acceptance
  uint32_t running_ = 0;
  uint64_t last_sequence_ = 0;
  uint64_t flush_up_to_ = 0;  // batches up to this one are answered before a restart
  bool restart_wanted_ = false;
  bool stopping_ = false;
  bool finished_ = false;
  std::thread thread_;
  std::thread::id thread_id_;
};

}  // namespace lum_linux
