// The interface manager: keeps the name-to-handle table of controller interfaces, takes batches and
// answers them on a thread of its own. Its faults and delays can be asked for while it runs.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "imca.h"

namespace lum_linux {

struct im_options {
  uint32_t handle_base = 0x08000000;  // the first handle is one above it; not 0
  std::chrono::milliseconds delay_min{0};
  std::chrono::milliseconds delay_max{0};
  uint32_t seed = 1;
  bool out_of_order = false;
};

// What a malformed create reply looks like.
enum class im_malformation {
  none,
  garbage,         // bytes that are no reply at all
  truncated,       // a reply cut short
  missing_member,  // a well-formed reply without the interface handle
  absent,          // no data for a successful element
};

struct im_controller {
  std::string name;
  uint32_t handle = 0;
  std::optional<uint32_t> state;  // last sent by an update, 0 or 1; nothing before the first
  uint32_t updates = 0;           // update elements that named the controller
};

struct im_statistics {
  uint64_t create_batches = 0;  // accepted
  uint64_t delete_batches = 0;
  uint64_t update_batches = 0;
  uint64_t elements = 0;  // of accepted batches
  uint64_t refused = 0;   // batches refused
  uint64_t answered = 0;  // batches completed
  uint64_t dropped = 0;   // accepted batches that never will be
  uint64_t failed_elements = 0;
  uint64_t restarts = 0;
  uint64_t pending = 0;  // batches accepted and neither answered nor dropped yet

  bool operator==(const im_statistics &) const = default;
};

// What has been asked of the manager and is still to come: batches left, and what is in force.
struct im_behaviour {
  uint32_t refuse = 0;
  cerrno refuse_code = 0;
  uint32_t drop = 0;
  uint32_t fail = 0;
  cerrno fail_code = 0;
  uint32_t empty = 0;
  uint32_t malform = 0;
  im_malformation malformation = im_malformation::none;
  std::map<std::string, cerrno> fail_names;
  uint32_t fail_nth = 0;
  cerrno fail_nth_code = 0;
  std::chrono::milliseconds delay_min{0};
  std::chrono::milliseconds delay_max{0};
  bool out_of_order = false;
  bool held = false;
};

enum class im_batch_state {
  waiting,
  completing,  // answered, and its completion is still running
  answered,
  dropped,
  refused
};

// What has become of one batch.
struct im_batch_report {
  uint32_t count = 0;  // of its elements
  im_batch_state state = im_batch_state::waiting;
  cerrno code = 0;     // of a refusal, of the whole batch, else of its first element that failed
  bool empty = false;  // answered for no element
  struct failure {
    std::string name;  // of the controller; empty when it is not known
    cerrno code = 0;
  };
  std::vector<failure> failed;  // elements
};

// All calls may come from any threads, the completion's included. None waits but where it says so,
// and no lock is held while a completion runs.
class interface_manager {
  class core;

 public:
  // Starts the thread. May throw std::system_error when there is none to be had.
  explicit interface_manager(const im_options &options = {});
  // As stop() with its default bound.
  ~interface_manager();
  interface_manager(const interface_manager &) = delete;
  interface_manager &operator=(const interface_manager &) = delete;

  // The two requests of the callback table, whose comment in lum.h describes the arguments. Names
  // and payload are copied. Return 0, 12, 22 for arguments that make no sense, 108 after stop(), or
  // the code asked for with refuse_next. A refused batch is never completed. When memory runs out
  // while an accepted batch is carried out, all of its elements fail with 12 and none is created.
  cerrno request_by_name(const char *const *names, uint16_t iftype, const void *payload,
                         uint32_t payload_count, uint32_t operation, void *context, uint32_t count,
                         imca_completion complete) noexcept;
  cerrno update_by_handle(const uint32_t *ifhandles, uint32_t iftype, const void *payload,
                          uint32_t payload_size, uint32_t operation, void *context, uint32_t count,
                          imca_completion complete) noexcept;

  // Ends the thread. Batches not answered by then never are. Waits up to `bound` for a completion
  // that is still running; returns false when it had to leave the thread behind. On the manager's
  // own thread it asks for the end without waiting.
  bool stop(std::chrono::milliseconds bound = std::chrono::seconds(2));

  // What is known of the controllers, in the order of their handles.
  std::vector<im_controller> controllers() const;
  std::optional<im_controller> find(uint32_t handle) const;
  std::optional<std::string> name_of(uint32_t handle) const;
  std::optional<uint32_t> handle_of(const std::string &name) const;
  im_statistics statistics() const;
  im_behaviour behaviour() const;

  // Keeps an account of the batches that one thread requests: of the thread that makes it, from
  // then on until end() or its destruction, both on that thread too. One at a time for a thread.
  class account {
   public:
    explicit account(const interface_manager &manager);
    ~account();
    account(const account &) = delete;
    account &operator=(const account &) = delete;

    void end();
    // How they stand, in the order of their requests.
    std::vector<im_batch_report> batches() const;

   private:
    std::shared_ptr<core> core_;
    std::vector<std::shared_ptr<im_batch_report>> batches_;
    friend class interface_manager::core;
  };

  // Waits until no batch is pending and no completion runs; false when `bound` passed before. Not
  // to be called from a completion.
  bool wait_idle(std::chrono::milliseconds bound) const;

  // Faults. Each of the "next" kind counts batches as they are requested; a later call replaces
  // what is left of an earlier one, and 0 takes it back. A batch meets one of them at most, in this
  // order: refused, dropped, failed whole, answered empty, its create replies malformed. Its
  // elements may fail besides when it is carried out, which is when it is answered.
  void refuse_next(uint32_t batches, cerrno code);
  void drop_next(uint32_t batches);  // accepted, carried out by nobody, never answered
  void fail_next(uint32_t batches, cerrno batch_error);
  void empty_next(uint32_t batches);  // answered with a count of 0, nothing carried out
  void malform_next(uint32_t batches, im_malformation kind);  // create batches only
  // Fails every element of this name, or every nth element counted from now on, until taken back
  // with code 0 or nth 0. A failed element is not carried out.
  void fail_name(const std::string &name, cerrno code);
  void fail_every(uint32_t nth, cerrno code);

  // Each reply comes a random time of this range after its request.
  void set_delay(std::chrono::milliseconds min, std::chrono::milliseconds max, uint32_t seed = 1);
  // Lets batches gather for `window` after the oldest of them is due, and answers newest first.
  void set_out_of_order(bool on, std::chrono::milliseconds window = std::chrono::milliseconds(20));
  // While held, batches are accepted and none is answered.
  void hold(bool on);
  // Takes back every fault, delay and hold; the out-of-order setting too.
  void behave();

  enum class pending { answer, drop };
  // Forgets every controller and goes on with handles never given out before. Pending batches are
  // answered first, without delay, or dropped. Waits for the answers up to `bound`; false when they
  // took longer (the restart then follows them). From a completion it does not wait.
  bool restart(pending what = pending::answer,
               std::chrono::milliseconds bound = std::chrono::seconds(2));

 private:
  std::shared_ptr<core> core_;
};

}  // namespace lum_linux
