// One module of the rack: its memory, its lock, its faults and what is known of its transfers.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "lum_linux/modules.h"
#include "modules/control_line.h"
#include "modules/fault_injector.h"
#include "modules/presence_line.h"

namespace lum_linux {

// The memory belongs to one caller at a time: who has set busy_ under mutex_. The mutex itself is
// never held during an access to the memory, a delay or a hang, so that everything else about the
// module can be asked and changed meanwhile.
class module_entry {
 public:
  explicit module_entry(module_placement placement);

  // `bytes` is what to read into, or the one byte to write.
  cerrno transfer(transfer_kind kind, uint32_t page, uint32_t offset, std::span<uint8_t> bytes);

  // Asks the memory whether there is a module, unless a transfer has told so just now. Waits a
  // moment for the memory, and for as long as it takes to answer.
  void look();
  // How long no look has anything to ask: a transfer has told of the module, and no line may tell
  // otherwise. 0: a look has.
  std::chrono::milliseconds unasked_for();
  bool is_being_looked_at() const { return looking_.load(std::memory_order_relaxed); }
  // As known last.
  module_status status();
  module_glimpse glimpse();

  void set_faults(const fault_script &faults);
  void release();
  void remove();
  cerrno insert();
  cerrno insert(const std::filesystem::path &description, std::string &error);

  cerrno set_line(module_line which, bool on);

  cerrno peek(uint32_t page, uint32_t offset, std::span<uint8_t> out, std::string *why);
  cerrno poke(uint32_t page, uint32_t offset, uint8_t value);

  void stop();

 private:
  using lock = std::unique_lock<std::mutex>;
  using clock = std::chrono::steady_clock;

  class memory_hold;  // has the memory while it lives

  cerrno carry_out(lock &held, transfer_kind kind, uint32_t page, uint32_t offset,
                   std::span<uint8_t> bytes);
  cerrno wait_out_faults(lock &held);
  cerrno access(lock &held, const std::function<cerrno()> &use);
  cerrno with_memory(const std::function<cerrno()> &use, std::string *why);
  cerrno wait_for_memory(lock &held);
  bool has_just_answered() const;
  bool has_lines() const { return line_ || reset_ || low_power_; }
  void ask_presence(lock &held, bool trusts_transfers);
  void ask_line(lock &held);
  void ask_control_lines(lock &held);
  bool is_in_reset() const;
  void note(bool there, uint64_t insertion, cerrno place_code = module_ok);
  void note_insertion(uint64_t insertion);
  void count_insertion();
  void put_back();
  void count(transfer_kind kind, std::size_t bytes, cerrno rc, clock::time_point started);

  const module_backend backend_;
  const std::unique_ptr<module_memory> memory_;
  const std::filesystem::path description_;
  const std::optional<presence_line> line_;
  const std::optional<control_line> reset_;
  const std::optional<control_line> low_power_;

  std::mutex mutex_;  // guards everything below
  std::condition_variable changed_;
  bool busy_ = false;
  bool stopped_ = false;
  bool pulled_ = false;
  bool there_ = false;             // the memory had a module when it was last asked
  clock::time_point known_at_{};   // that was
  uint64_t memory_insertion_ = 0;  // and this was its number
  cerrno place_code_ = module_ok;  // and this, where it had none
  uint64_t insertion_ = 0;
  std::string_view way_;  // as the memory had it when it was last used
  std::string why_;       // what the code of the access under way, or the last one, does not tell
  std::optional<line_status> reset_status_;
  std::optional<line_status> low_power_status_;
  const control_line *being_set_ = nullptr;  // by the latest caller
  clock::time_point set_since_{};
  clock::time_point busy_since_{};
  fault_injector faults_;
  module_statistics statistics_;
  std::atomic<bool> looking_{false};
};

}  // namespace lum_linux
