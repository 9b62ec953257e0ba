// How a ring lies in its file. All of it is words of 64 bits in the machine's own order, each read
// and written as one:
//
//   words 0 to 511     the header
//   the next 8192      formats: each its lengths and checksum, the format, the signature
//   the rest           units of 8 words, a power of two of them; a record is whole units
//
// A record's first word is its commit: it is 0 while the record is written, and has the checksum of
// all others and of the record's place last. Whoever reads trusts nothing but the checksum: a
// record may be overwritten while it is read, a slow writer may have been lapped, and a file may
// hold anything.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace lum_linux::rings {

inline constexpr uint64_t magic = 0x31474E49524D554C;  // "LUMRING1"
inline constexpr size_t word_bytes = 8;
inline constexpr size_t header_words = 512;
inline constexpr size_t format_words = 8192;
inline constexpr size_t unit_words = 8;
inline constexpr size_t first_unit = header_words + format_words;  // in words
inline constexpr size_t smallest_units = 1024;                     // 64 KiB
inline constexpr size_t largest_units = 16384;                     // 1 MiB

// Words of the header.
inline constexpr size_t magic_at = 0;
inline constexpr size_t units_at = 1;
inline constexpr size_t points_at = 2;
inline constexpr size_t head_at = 8;      // a place: of the next record
inline constexpr size_t written_at = 16;  // a place: up to there the text files have had their turn
inline constexpr size_t channel_at = 32;
inline constexpr size_t process_at = 48;
inline constexpr size_t digest_at = 80;
inline constexpr size_t channel_words = 8;
inline constexpr size_t process_words = 32;
inline constexpr size_t digest_words = 8;

// A place in a ring: how many units and, above them, how many records came before. Both are counted
// in one word, so that a gap in the units says how many records it was.
inline constexpr unsigned unit_bits = 36;
inline constexpr uint64_t unit_mask = (uint64_t{1} << unit_bits) - 1;
inline constexpr uint64_t count_mask = (uint64_t{1} << (64 - unit_bits)) - 1;
constexpr uint64_t units_of(uint64_t place) { return place & unit_mask; }
constexpr uint64_t count_of(uint64_t place) { return place >> unit_bits; }
constexpr uint64_t place_of(uint64_t units, uint64_t count) {
  return (count & count_mask) << unit_bits | (units & unit_mask);
}

// Words of a record. Behind them come the arguments: a number is a word; a text its length in the
// lowest 16 bits, then its bytes.
inline constexpr size_t commit_at = 0;  // checksum << 32 | words
inline constexpr size_t time_at = 1;
inline constexpr size_t origin_at = 2;  // thread << 32 | point
inline constexpr size_t place_at = 3;   // count << 36 | kind << 16 | format, in words
inline constexpr size_t arguments_at = 4;
inline constexpr unsigned kind_shift = 16;
inline constexpr uint64_t kind_text = 1;  // one text, made by the caller
inline constexpr size_t longest_text = 2048;
inline constexpr size_t most_arguments = 16;
inline constexpr uint64_t null_text = 0xFFFF;  // in place of the length
inline constexpr size_t length_bytes = 2;
inline constexpr size_t most_words =
    arguments_at + 2 * most_arguments + longest_text / word_bytes + 1;

inline uint64_t load(uint64_t &word) {
  return std::atomic_ref(word).load(std::memory_order_relaxed);
}
inline void store(uint64_t &word, uint64_t value) {
  std::atomic_ref(word).store(value, std::memory_order_relaxed);
}

// Of words one after the other.
class checksum {
 public:
  explicit checksum(uint64_t seed) : sum_(seed ^ start) {}
  void add(uint64_t word) {
    sum_ = (sum_ ^ word) * factor;
    sum_ ^= sum_ >> 29;
  }
  uint32_t value() const { return static_cast<uint32_t>(sum_ >> 32 ^ sum_) | 1; }

 private:
  static constexpr uint64_t start = 0x9E3779B97F4A7C15;
  static constexpr uint64_t factor = 0xBF58476D1CE4E5B9;
  uint64_t sum_;
};

}  // namespace lum_linux::rings
