// The node's ports as they are created at its start: side by side, so that no port waits for
// another's cage.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "lum_linux/lanes.h"
#include "lum_linux/node_description.h"
#include "node/turns.h"

namespace lumd {

class driver;

// What is created in one call of the library, of one instance of a slot.
struct creation {
  uint32_t instance = 0;
  // Creations of one lane follow one another.
  uint64_t lane = 0;
  std::vector<const lum_linux::port_description *> ports;
};

// Plans the creations of one slot after the other. Ports on one I2C bus share a lane, whatever
// their slot. Modules that answer are quick: those of an instance on one lane are created together,
// and all that are on no bus of ours on `in_order`, so that their controllers come about in the
// description's order. A port whose cage is empty or does not answer is created by itself, behind
// those; on no bus of ours, on a lane by itself.
class creation_plan {
 public:
  using question = std::function<bool(const lum_linux::port_description &)>;

  static constexpr uint64_t in_order = 0;

  // `answers` is asked for each port.
  std::vector<creation> of(const lum_linux::slot_description &slot, const question &answers);
  // That nothing else is on.
  uint64_t another_lane() { return ++last_; }

 private:
  uint64_t lane_of(const lum_linux::port_description &port, bool answers);

  uint64_t last_ = in_order;
  std::map<std::string, uint64_t> buses_;
};

class port_creations {
 public:
  explicit port_creations(driver &node);

  // Opens every instance that has no port yet, and begins to create every port of the description
  // that is not there. Each slot's creations keep its turn until they have ended; a slot whose turn
  // somebody else has comes last. Returns once all have begun, and waits for those that are made in
  // order, for a second each at most. Where it throws std::bad_alloc, it goes on when it is called
  // again. One thread; the driver must live until the process ends from then on.
  void begin();

  // Every port has been asked for.
  bool have_ended() const { return ended_; }

  // What has not begun does not begin. Any thread; waits for nothing.
  void stop();

 private:
  struct work;

  void begin_slot(uint32_t number, slot_turns::turn mine);
  std::vector<std::shared_ptr<work>> work_of(const lum_linux::slot_description &slot,
                                             slot_turns::turn mine);
  void post(const std::shared_ptr<work> &one) noexcept;
  void post_in_order(const std::shared_ptr<work> &one) noexcept;
  void run(work &one) noexcept;
  void leave() noexcept;

  driver &node_;
  lum_linux::lanes lanes_;
  std::atomic<bool> stopped_{false};
  std::atomic<bool> ended_{false};
  std::atomic<bool> good_{true};
  std::atomic<std::size_t> left_{1};  // creations that have not ended, and one for begin()
  // Of the thread that begins.
  std::optional<std::vector<uint32_t>> slots_;  // not begun
  creation_plan plan_;
  uint64_t lane_in_order_ = creation_plan::in_order;

  std::mutex mutex_;  // guards whether a creation has ended
  std::condition_variable one_ended_;
};

}  // namespace lumd
