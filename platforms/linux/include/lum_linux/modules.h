// All modules of the node: which one is in which port, transfers to them, what is known of those
// transfers, faults, removal and insertion.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lum_linux/image.h"
#include "lum_linux/lanes.h"
#include "lum_linux/module_faults.h"
#include "lum_linux/module_memory.h"
#include "lum_linux/node_description.h"

namespace lum_linux {

class module_entry;

// Transfers are those of the three callbacks; looking into a module from outside does not count.
struct module_statistics {
  uint64_t attempted = 0;
  uint64_t failed = 0;
  uint64_t bytes_read = 0;
  uint64_t bytes_written = 0;
  std::chrono::steady_clock::time_point last_success{};  // the clock's epoch: never
  std::chrono::steady_clock::time_point last_failure{};
  cerrno last_error = 0;                       // code of the last failed transfer, 0: none failed
  std::string last_reason;                     // what that code does not tell; may be empty
  std::chrono::microseconds last_duration{0};  // of the last transfer, faults included
};

enum class module_line : uint8_t { reset, low_power };

// A line of a cage, as known last.
struct line_status {
  std::string file;
  cerrno code = 0;            // errno of a file that cannot be read
  std::optional<bool> is_on;  // none: the file holds neither of the line's values, or is not known
};

struct module_status {
  module_backend backend = module_backend::file;
  std::string location;
  std::string way;       // by which of several ways its bytes come; empty: there is but one
  bool present = false;  // as known last; false before the first look
  // When that was known; the clock's epoch: never.
  std::chrono::steady_clock::time_point known_at{};
  bool is_known() const { return known_at != std::chrono::steady_clock::time_point(); }
  // Why there can be no module, whatever the cage holds: the errno of the bus or folder `place`,
  // which cannot be opened. 0: nothing like that is known.
  cerrno place_code = 0;
  std::string place;
  std::optional<line_status> reset;  // of a cage that has the line
  std::optional<line_status> low_power;
  std::string line_being_set;                 // the file of one of the two; empty: none is
  std::chrono::milliseconds line_set_for{0};  // how long that has been going on
  bool pulled = false;     // taken out with remove() or by a fault, whatever the backend has
  uint64_t insertion = 0;  // differs once another module is in the cage, or the same one again
  std::chrono::milliseconds busy_for{0};  // how long the transfer under way has been
  fault_script faults;
  module_statistics statistics;
};

// What of module_status does not change with a good transfer, in a few words, by which it is seen
// that a module is as it was. Its lines are not in it.
struct module_glimpse {
  bool known = false;
  bool present = false;
  bool busy = false;  // with a transfer that has gone on for more than a second
  cerrno place_code = 0;
  uint64_t insertion = 0;
  uint64_t failed = 0;  // transfers
  bool failed_last = false;
  std::string_view way;  // what it points to stays

  bool operator==(const module_glimpse &) const = default;
};

// One module and where it belongs.
struct module_placement {
  uint32_t rsip = 0;
  module_backend backend = module_backend::file;
  std::unique_ptr<module_memory> memory;
  std::filesystem::path description;  // simulated: read again by insert(); may be empty
  fault_script faults;
  // Of the cage, when it has a presence line: the file, and what it holds while there is a module.
  // It alone says then whether there is one. An empty cage's memory is left alone, and a module
  // that does not answer in a filled one fails.
  std::filesystem::path presence{};
  std::string presence_value{};
  // Lines that set_line() steers, and nothing else touches. A module that is held in reset and does
  // not answer fails; it is not taken for absent.
  line_description reset{};
  line_description low_power{};
};

// Any thread may make any call at any time. Each module has a lock of its own that one transfer
// holds from its start to its end: a module that hangs holds up nobody but those who want a
// transfer with it. A port that the node does not have gets module_bad_argument.
class modules {
 public:
  // The modules of a node, after a first look at every cage that waits as look() does. An empty
  // cage is fine; returns null with `error` ("file:line: message") for a simulated module whose
  // description is wrong.
  static std::unique_ptr<modules> open(const node_description &node, std::string &error);
  // Modules placed by hand. The last of several for one port counts.
  explicit modules(std::vector<module_placement> placements);
  // Not while a call is under way: stop(), then wait for the callers.
  ~modules();
  modules(const modules &) = delete;
  modules &operator=(const modules &) = delete;

  // The three callbacks of lum_platform_cbs. They wait for the module's lock and for the transfer;
  // stop() ends both waits. A null pointer or a length below 1 gets module_bad_argument. What a
  // failed read was to fill stays as it was.
  cerrno read_byte(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page, uint32_t offset,
                   uint8_t *value);
  cerrno read_block(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page, uint32_t offset,
                    int32_t length, uint8_t *buffer);
  cerrno write_byte(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page, uint32_t offset,
                    uint8_t value);

  // The ports that have a cage, in ascending order.
  std::vector<uint32_t> ports() const;
  // Looks into every cage, on threads of its own, and returns when all have been looked into or
  // those left over have not answered for a quarter of a second. Those go on, and are not asked
  // again meanwhile. A transfer tells of its module's presence too: one that has answered within
  // the last seconds is not asked besides; where all have, no thread wakes.
  void look() const;
  // How long no cage needs a look while nothing else happens to the modules; 0: one does.
  std::chrono::milliseconds unasked_for() const;
  // Whether there was a module in the port's cage when it was last known. Waits for nothing.
  bool present(uint32_t rsip) const;
  // What is known of a module; nothing for an unknown port. Waits for nothing.
  std::optional<module_status> status(uint32_t rsip) const;
  // The same for whoever only asks whether anything has changed.
  module_glimpse glimpse(uint32_t rsip) const;

  // Replaces the module's faults; a transfer that hangs goes on unless the new script hangs too.
  cerrno set_faults(uint32_t rsip, const fault_script &faults);
  // Lets the transfer that hangs, and those to come, go on; the other faults stay.
  cerrno release(uint32_t rsip);

  // Takes the module out of its cage, whatever the backend has, until it is inserted again.
  cerrno remove(uint32_t rsip);
  // Puts it back. A simulated cage that never had a module reads its description first. Gets 2 when
  // there is no module, whatever the backend.
  cerrno insert(uint32_t rsip);
  // Puts another module in: one made from a description. Simulated modules only. `error` says
  // what is wrong with the description.
  cerrno insert(uint32_t rsip, const std::filesystem::path &description, std::string &error);

  // Steers a line of the cage; module_unsupported where it has none, the errno of a file that
  // cannot be written, module_failing when it does not hold what was written. Does not wait for the
  // module. Letting a module out of reset is an insertion: it begins anew.
  cerrno set_line(uint32_t rsip, module_line line, bool on);

  // Look into a module and change a byte of it past the faults and the statistics. Wait at most a
  // second for the module's lock, then module_busy. `why` gets what a failure's code does not tell.
  cerrno peek(uint32_t rsip, uint32_t page, uint32_t offset, std::span<uint8_t> out,
              std::string *why = nullptr) const;
  cerrno poke(uint32_t rsip, uint32_t page, uint32_t offset, uint8_t value);

  // Ends every wait with module_absent, and answers that to every transfer from now on.
  void stop();

 private:
  struct cage {
    uint32_t rsip = 0;
    std::shared_ptr<module_entry> entry;  // shared with a look that does not end
  };

  module_entry *find(uint32_t rsip) const;
  module_entry *find(uint32_t slot, uint32_t instance, uint32_t port) const;

  // By rsip without its rack, which transfers do not name. Does not change after construction.
  std::map<uint32_t, cage> entries_;
  std::unique_ptr<lanes> lookers_;
};

}  // namespace lum_linux
