// The ports' LEDs in the shape of the Linux LED class; docs/leds.md has the details.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>

#include "cerr.h"
#include "lum_linux/node_description.h"

namespace lum_linux {

// A port named NAME has a green LED, the folder NAME:green:status, and a red one,
// NAME:red:fault, each with `brightness`, `max_brightness` and possibly `trigger`. Below a folder
// of the LED class itself (sysfs) they must be there; below an ordinary folder those missing are
// made when the node starts. Any thread may make any call; results are 0, 22 for a port that the
// node does not have or a state that LEDs cannot show, or the errno of the file operation.
class leds {
 public:
  // Never fails: an LED that cannot be made or reached shows in the results of its calls.
  explicit leds(const node_description &node);
  // LEDs named by hand: rsip to name, an empty name for a port that has none.
  leds(std::filesystem::path root, std::map<uint32_t, std::string> names);

  // Reads the state from what is there: 0 dark, 1 green, 3 red, 2 both. 2 (ENOENT) for a port
  // without an LED. On failure `*state` stays as it was.
  cerrno get_state(uint32_t rsip, uint32_t *state);
  // Sets 0, 1, 2 or 3 and writes only what differs. 0 for a port without an LED.
  cerrno set_state(uint32_t rsip, uint32_t state);

 private:
  std::mutex mutex_;  // one call at a time sets or reads the pair
  std::filesystem::path root_;
  std::map<uint32_t, std::string> names_;
};

}  // namespace lum_linux
