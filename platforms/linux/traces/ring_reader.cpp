#include "traces/ring_reader.h"

#include <cstring>

#include "traces/line_format.h"

namespace lum_linux {

using namespace rings;

std::string ring_reader::name(size_t at, size_t words) const {
  std::string text(words * word_bytes, '\0');
  for (size_t i = 0; i < words; ++i) {
    const uint64_t word = load(words_[at + i]);
    std::memcpy(text.data() + i * word_bytes, &word, word_bytes);
  }
  return text.substr(0, text.find('\0'));
}

// A copy whose checksum holds is whole, whoever wrote meanwhile.
bool ring_reader::take(uint64_t unit, uint64_t end) {
  const uint64_t mask = units_ * unit_words - 1;
  const auto word = [&](size_t i) -> uint64_t & {
    return words_[first_unit + ((unit * unit_words + i) & mask)];
  };
  const uint64_t commit = std::atomic_ref(word(commit_at)).load(std::memory_order_acquire);
  const uint64_t words = commit & 0xFFFFFFFF;
  if (words < arguments_at || words > most_words) return false;
  if (unit + (words + unit_words - 1) / unit_words > end) return false;
  record_.resize(words);
  record_[commit_at] = commit;
  checksum sum(unit);
  sum.add(words);
  for (size_t i = 1; i < words; ++i) {
    record_[i] = load(word(i));
    sum.add(record_[i]);
  }
  return sum.value() == commit >> 32;
}

bool ring_reader::take_format(size_t at, std::string &format, std::string &signature) const {
  if (at >= format_words) return false;
  const uint64_t head = load(words_[header_words + at]);
  const size_t length = head & 0xFFFF, letters = head >> 16 & 0xFFFF;
  const size_t words = (length + letters + word_bytes - 1) / word_bytes;
  if (at + 1 + words > format_words) return false;
  std::string bytes(words * word_bytes, '\0');
  checksum sum(head & 0xFFFFFFFF);
  for (size_t i = 0; i < words; ++i) {
    const uint64_t word = load(words_[header_words + at + 1 + i]);
    sum.add(word);
    std::memcpy(bytes.data() + i * word_bytes, &word, word_bytes);
  }
  if (sum.value() != head >> 32) return false;
  format = bytes.substr(0, length);
  signature = bytes.substr(length, letters);
  return true;
}

bool ring_reader::make_text(std::string &text) {
  const uint64_t place = record_[place_at];
  const std::span<const uint64_t> arguments = std::span(record_).subspan(arguments_at);
  const auto point = static_cast<uint32_t>(record_[origin_at]);
  std::string made;
  bool cut = false;
  if ((place >> kind_shift & 0xFF) == kind_text) {
    if (!render_text(arguments, made, cut)) return false;
  } else {
    std::string format, signature;
    if (!take_format(place & 0xFFFF, format, signature)) return false;
    if (!render(format, signature, arguments, made, cut)) return false;
  }
  text = printable_line(point, made, cut);
  return true;
}

bool ring_reader::read(uint64_t unit, uint64_t end, ring_line &line) {
  if (unit >= end || !take(unit, end)) return false;
  line.time_ns = static_cast<int64_t>(record_[time_at]);
  line.thread = static_cast<uint32_t>(record_[origin_at] >> 32);
  line.point = static_cast<uint32_t>(record_[origin_at]);
  line.count = count_of(record_[place_at]);
  line.next = place_of(unit + (record_.size() + unit_words - 1) / unit_words, line.count + 1);
  return make_text(line.text);
}

bool ring_reader::find(uint64_t unit, uint64_t end, ring_line &line) {
  for (; unit < end; ++unit) {
    if (read(unit, end, line)) return true;
  }
  return false;
}

}  // namespace lum_linux
