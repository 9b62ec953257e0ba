// The ports' LEDs in the shape of the Linux LED class; docs/leds.md has the details.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "cerr.h"
#include "lum_linux/lanes.h"
#include "lum_linux/node_description.h"

namespace lum_linux {

// A port named NAME has a green LED, the folder NAME:green:status, and a red one,
// NAME:red:fault, each with `brightness`, `max_brightness` and possibly `trigger`. Below a folder
// of the LED class itself (sysfs) they must be there; below an ordinary folder those missing are
// made when the node starts. Any thread may make any call; results are 0, 22 for a port that the
// node does not have or a state that LEDs cannot show, or the errno of the file operation. A pair
// whose files do not answer holds up nobody but those who want that pair, and these for a quarter
// of a second: 16 (EBUSY) then. The state that was wanted last is set once they answer.

// What is wrong with a port's pair.
struct led_trouble {
  std::filesystem::path led;       // the folder of one of the two
  cerrno code = 0;                 // why it could not be made, read or set
  std::optional<uint32_t> wanted;  // the state that it should show; absent before the first
};

// What is known of a port's pair.
struct led_status {
  std::optional<uint32_t> state;                     // as seen or set last, while that can be told
  std::chrono::steady_clock::time_point known_at{};  // that was
  // What has been wrong since the pair was read or set last; 110 (ETIMEDOUT) while its files do not
  // answer.
  std::optional<led_trouble> trouble;
};

class leds {
 public:
  // Never fails: an LED that cannot be made or reached shows in the results of its calls.
  explicit leds(const node_description &node);
  // LEDs named by hand: rsip to name, an empty name for a port that has none.
  leds(const std::filesystem::path &root, const std::map<uint32_t, std::string> &names);
  ~leds();

  // Reads the state from what is there: 0 dark, 1 green, 3 red, 2 both. 2 (ENOENT) for a port
  // without an LED. On failure `*state` stays as it was.
  cerrno get_state(uint32_t rsip, uint32_t *state);
  // Sets 0, 1, 2 or 3 and writes only what differs. 0 for a port without an LED.
  cerrno set_state(uint32_t rsip, uint32_t state);

  // As known last; nothing for a port without LEDs. Waits for nothing.
  std::optional<led_status> status(uint32_t rsip) const;
  std::optional<led_trouble> trouble(uint32_t rsip) const;
  // Of any pair.
  bool in_trouble() const;
  // Reads every pair, and sets once more what could not be set. Returns when all have been looked
  // at or those left over have not answered for a quarter of a second; those go on, and are not
  // looked at again meanwhile. One thread at a time.
  void look();

 private:
  struct pair_of_leds;
  class one_look;

  std::shared_ptr<pair_of_leds> find(uint32_t rsip) const;
  cerrno within_patience(uint32_t rsip, const pair_of_leds &pair, std::function<cerrno()> work);

  // By rsip. Does not change after construction; shared with what does not end.
  std::map<uint32_t, std::shared_ptr<pair_of_leds>> pairs_;
  std::unique_ptr<lanes> lookers_;
};

}  // namespace lum_linux
