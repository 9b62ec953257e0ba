// Records out of a ring's words, be they a mapping that others write to or what a file held.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "traces/ring_layout.h"

namespace lum_linux {

struct ring_line {
  int64_t time_ns = 0;
  uint32_t thread = 0;
  uint32_t point = 0;
  uint64_t next = 0;   // the place behind it
  uint64_t count = 0;  // records before it
  std::string text;    // "#18 text", printable
};

class ring_reader {
 public:
  // Words of a whole ring with that many units, a power of two.
  ring_reader(std::span<uint64_t> words, uint64_t units) : words_(words), units_(units) {}

  uint64_t head() const { return rings::load(words_[rings::head_at]); }
  uint64_t written() const { return rings::load(words_[rings::written_at]); }
  std::string name(size_t at, size_t words) const;  // a text of the header

  // The oldest unit that the ring can have when the next is at `head`.
  uint64_t oldest(uint64_t head) const {
    return rings::units_of(head) > units_ ? rings::units_of(head) - units_ : 0;
  }
  // The record that begins with that unit and ends before `end`. False when none whole does.
  bool read(uint64_t unit, uint64_t end, ring_line &line);
  // The first whole record from `unit` on before `end`; false when there is none.
  bool find(uint64_t unit, uint64_t end, ring_line &line);

 private:
  bool take(uint64_t unit, uint64_t end);
  bool make_text(std::string &text);
  bool take_format(size_t at, std::string &format, std::string &signature) const;

  std::span<uint64_t> words_;
  uint64_t units_;
  std::vector<uint64_t> record_;  // the words of the last one taken
};

}  // namespace lum_linux
