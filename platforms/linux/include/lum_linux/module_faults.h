// What goes wrong with a module on purpose. A script works on top of any backend.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "cerr.h"

namespace lum_linux {

// Everything starts counting when the script is set. "Every n-th" with 0 means never; a percentage
// is drawn from `seed`, so the same script gives the same faults.
struct fault_script {
  uint32_t refuse_every = 0;    // every n-th transfer is refused
  uint32_t refuse_percent = 0;  // 0 to 100: so many transfers of a hundred are refused
  cerrno refuse_code = 5;       // with this code, 1 or more
  bool refuse_reads = true;     // which of them may be refused
  bool refuse_writes = true;
  std::chrono::milliseconds delay{0};  // each transfer takes so much longer
  bool hang = false;                   // a transfer hangs until it is released
  uint32_t flip_every = 0;             // every n-th read comes with flipped bits
  uint32_t flip_percent = 0;           // 0 to 100: so many reads of a hundred do
  uint32_t flip_bits = 1;              // bits flipped in such a read
  uint32_t half_every = 0;    // every n-th block read has its second half from the block read
                              // of the same place before it, or zeros when there was none
  uint32_t remove_after = 0;  // n more transfers are served, then the module is pulled
  uint32_t insert_after = 0;  // n transfers have met an empty cage, then the module is back
  uint32_t seed = 1;

  bool operator==(const fault_script &) const = default;
};

// Reads a script such as "refuse-every=3,code=121,delay-ms=20,hang". Words, in any order, separated
// by commas or blanks: refuse-every=N refuse-percent=N code=N only=reads|writes delay-ms=N hang
// flip-every=N flip-percent=N flip-bits=N half-every=N remove-after=N insert-after=N seed=N, or
// "none" alone. Returns false with `error` saying which word is wrong and what was expected.
bool parse_fault_script(std::string_view text, fault_script &script, std::string &error);

// The script in words that parse_fault_script takes, "none" when nothing goes wrong.
std::string to_string(const fault_script &script);

}  // namespace lum_linux
