// The ports' LEDs in the shape of the Linux LED class; docs/leds.md has the details.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "cerr.h"
#include "lum_linux/node_description.h"

namespace lum_linux {

// A port named NAME has a green LED, the folder NAME:green:status, and a red one,
// NAME:red:fault, each with `brightness`, `max_brightness` and possibly `trigger`. Below a folder
// of the LED class itself (sysfs) they must be there; below an ordinary folder those missing are
// made when the node starts. Any thread may make any call; results are 0, 22 for a port that the
// node does not have or a state that LEDs cannot show, or the errno of the file operation.

// What is wrong with a port's pair.
struct led_trouble {
  std::filesystem::path led;       // the folder of one of the two
  cerrno code = 0;                 // why it could not be made, read or set
  std::optional<uint32_t> wanted;  // the state that it should show; absent before the first
};

class leds {
 public:
  // Never fails: an LED that cannot be made or reached shows in the results of its calls.
  explicit leds(const node_description &node);
  // LEDs named by hand: rsip to name, an empty name for a port that has none.
  leds(std::filesystem::path root, const std::map<uint32_t, std::string> &names);

  // Reads the state from what is there: 0 dark, 1 green, 3 red, 2 both. 2 (ENOENT) for a port
  // without an LED. On failure `*state` stays as it was.
  cerrno get_state(uint32_t rsip, uint32_t *state);
  // Sets 0, 1, 2 or 3 and writes only what differs. 0 for a port without an LED.
  cerrno set_state(uint32_t rsip, uint32_t state);

  // What has been wrong with a port's LEDs since they were read or set last; nothing without LEDs.
  std::optional<led_trouble> trouble(uint32_t rsip) const;
  // Sets once more what could not be set, and looks again at what could not be read.
  void retry();

 private:
  struct pair_of_leds {
    std::string name;
    std::optional<uint32_t> wanted;
    std::optional<led_trouble> trouble;
  };

  cerrno set(pair_of_leds &pair, uint32_t state);
  cerrno get(pair_of_leds &pair, uint32_t &state);
  static void note(pair_of_leds &pair, cerrno rc, const std::filesystem::path &led);

  mutable std::mutex mutex_;  // one call at a time sets or reads a pair
  std::filesystem::path root_;
  std::map<uint32_t, pair_of_leds> pairs_;
};

}  // namespace lum_linux
