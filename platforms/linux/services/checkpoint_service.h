// What the calls of chkpt.h and those of the service's owner share: one store, its tables, and what
// is wrong with its records.
#pragma once

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "lum_linux/checkpoints.h"
#include "services/checkpoint_store.h"

namespace lum_linux {

// Whether a failure says something about a record itself, not about the way to it.
bool is_about_record(cerrno rc);

// A store that cannot be opened does not keep the service from starting: calls then fail with the
// reason's code, and tend() opens it as soon as that can be done. Meanwhile every key is found,
// under an id that stands for the key, so that it is seen what is done to its record.
class checkpoint_service {
 public:
  struct table {
    uint32_t kind;
    uint32_t version;
    bool persistent;
    bool found;
  };

  struct iterator {
    uint64_t table;
    uint64_t last_id;
  };

  // Runs a call with the lock held, and then publishes the status; no exception leaves it.
  template <typename Call>
  cerrno guarded(Call call) {
    try {
      const std::lock_guard hold(lock_);
      const cerrno rc = call(*this);
      publish();
      return rc;
    } catch (const std::bad_alloc &) {
      return ENOMEM;
    } catch (const std::exception &) {
      return EIO;
    }
  }

  // Waits for a short lock only.
  checkpoint_status status() const;

  // The rest is called with the lock held.
  cerrno set_file(const std::filesystem::path &file);
  bool is_started() const { return owner_.has_value(); }
  cerrno start(const store_owner &owner);
  void close();
  cerrno tend();

  cerrno add_table(uint32_t kind, uint32_t version, bool persistent, uint64_t &handle, bool &found);
  const table *table_of(uint64_t handle) const;
  cerrno map_key(const table &t, uint32_t key, uint64_t &id);
  cerrno create(const table &t, uint32_t key, uint64_t &id);
  cerrno load(const table &t, uint64_t id, std::span<std::byte> buffer);
  checkpoint_look look(const table &t, uint32_t key, std::span<std::byte> buffer);
  cerrno save(const table &t, uint64_t id, std::span<const std::byte> data);
  cerrno remove(const table &t, uint64_t id);
  cerrno start_walk(uint64_t table_handle, uint64_t &handle);
  cerrno next(uint64_t handle, uint64_t &id, std::span<std::byte> buffer);
  cerrno end_walk(uint64_t handle);

 private:
  // What a thread of its own opens; that thread's until it has come.
  struct coming_store {
    checkpoint_store::opened result;
    std::atomic<bool> has_come = false;
  };

  cerrno open_store(std::chrono::milliseconds patience);
  void ask_for_store(std::chrono::milliseconds patience);
  void renew_log();
  cerrno take(checkpoint_store::opened opened);
  cerrno go_without(cerrno code, const std::string &reason);
  void tell(const std::string &what) const;
  void tell_of_lost(const std::vector<lost_record> &all);
  void settle_unread();
  void settle_deletions();
  void forget_troubles(const record_key &record);
  void owe_deletion(const record_key &record);
  cerrno finish_deletion(const record_key &record);
  void finish_deletions();
  cerrno do_remove(uint64_t id, const record_key &record);
  cerrno find(const table &t, uint64_t id, record_key &record, uint64_t &real);
  void trouble(record_trouble what, const record_key &record, const std::string &reason);
  void mend(record_trouble what, const record_key &record) { troubles_.erase({record, what}); }
  bool has(record_trouble what, const record_key &record) const {
    return troubles_.contains({record, what});
  }
  cerrno count(cerrno rc);
  cerrno count_write(cerrno rc);
  void judge_writing(cerrno rc);
  void publish();

  std::mutex lock_;  // over the disk
  std::filesystem::path file_;
  std::optional<store_owner> owner_;  // once started
  std::unique_ptr<checkpoint_store> store_;
  std::shared_ptr<coming_store> coming_;  // one that was asked for and not taken yet
  cerrno code_ = 0;                       // without a store: of its opening
  std::map<uint64_t, table> tables_;
  std::map<uint64_t, iterator> iterators_;
  std::map<std::pair<record_key, record_trouble>, std::string> troubles_;  // why
  uint64_t last_handle_ = 0;  // of tables and iterators; never given out twice
  checkpoint_status now_;

  mutable std::mutex status_lock_;  // taken after the other; never held over the disk
  checkpoint_status published_;
};

// Lives until the process ends.
checkpoint_service &the_checkpoint_service();

}  // namespace lum_linux
