// The node's ports as they are created at its start: side by side, so that no port waits for
// another's cage.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "lum_linux/lanes.h"
#include "lum_linux/node_description.h"

namespace lumd {

class driver;

// What is created in one call of the library, of one instance of a slot.
struct creation {
  uint32_t slot = 0;
  const lum_linux::instance_description *instance = nullptr;
  uint64_t lane = 0;  // creations of one lane follow one another
  std::vector<const lum_linux::port_description *> ports;
};

// The creations of a whole node, those of each lane in their order. Ports on one I2C bus share a
// lane. Modules that answer are quick: those of an instance on one lane are created together, and
// all that are on no bus of ours on one lane, so that their controllers come about in the
// description's order. A port whose cage is empty or does not answer is created by itself, behind
// those; on no bus of ours, on a lane by itself. `answers` is asked for each port by its rsip.
std::vector<creation> plan_creations(const lum_linux::node_description &node,
                                     const std::function<bool(uint32_t rsip)> &answers);

class port_creations {
 public:
  explicit port_creations(driver &node);

  // Opens every instance that has no port yet, and begins to create every port of the description
  // that is not there; each slot is its creations' turn until they have ended. Waits for the turns
  // at the slots. Throws std::bad_alloc before anything has begun. Once, unless it threw; the
  // driver must live until the process ends from then on.
  void begin();

  // Every port has been asked for.
  bool have_ended() const { return ended_; }

  // What has not begun does not begin.
  void stop() { lanes_.stop(); }

 private:
  struct work;

  void run(const std::shared_ptr<work> &all, std::size_t which);

  driver &node_;
  lum_linux::lanes lanes_;
  std::atomic<bool> ended_{false};
};

}  // namespace lumd
