// Plain fields that threads share without a lock: each access is one relaxed atomic access, so a
// reader sees the old or the new value and never a torn one. Nothing else is promised.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace lum {

template <typename T>
T shared_load(const T &field) {
  return std::atomic_ref<T>(const_cast<T &>(field)).load(std::memory_order_relaxed);
}

template <typename T>
void shared_store(T &field, std::type_identity_t<T> value) {
  std::atomic_ref<T>(field).store(value, std::memory_order_relaxed);
}

template <typename T>
void shared_or(T &field, std::type_identity_t<T> bits) {
  std::atomic_ref<T>(field).fetch_or(bits, std::memory_order_relaxed);
}

template <typename T>
void shared_and(T &field, std::type_identity_t<T> bits) {
  std::atomic_ref<T>(field).fetch_and(bits, std::memory_order_relaxed);
}

// Records and texts go in the largest words that the shared field's address allows, so that no word
// inside them is torn.
namespace shared_detail {

// Calls `move` with an offset and a word type for each word of a field.
template <typename Move>
void each_word(const void *field, std::size_t size, Move move) {
  const auto address = reinterpret_cast<std::uintptr_t>(field);
  std::size_t at = 0;
  while (at < size) {
    const std::size_t left = size - at;
    const std::uintptr_t place = address + at;
    if (place % 8 == 0 && left >= 8) {
      move(at, std::uint64_t{});
      at += 8;
    } else if (place % 4 == 0 && left >= 4) {
      move(at, std::uint32_t{});
      at += 4;
    } else if (place % 2 == 0 && left >= 2) {
      move(at, std::uint16_t{});
      at += 2;
    } else {
      move(at, std::uint8_t{});
      at += 1;
    }
  }
}

template <typename Word>
std::atomic_ref<Word> word_at(const void *field, std::size_t at) {
  auto *bytes = static_cast<std::uint8_t *>(const_cast<void *>(field));
  return std::atomic_ref<Word>(*reinterpret_cast<Word *>(bytes + at));
}

}  // namespace shared_detail

inline void shared_read(void *destination, const void *field, std::size_t size) {
  shared_detail::each_word(field, size, [&]<typename Word>(std::size_t at, Word) {
    const Word word = shared_detail::word_at<Word>(field, at).load(std::memory_order_relaxed);
    std::memcpy(static_cast<std::uint8_t *>(destination) + at, &word, sizeof word);
  });
}

inline void shared_write(void *field, const void *source, std::size_t size) {
  shared_detail::each_word(field, size, [&]<typename Word>(std::size_t at, Word word) {
    std::memcpy(&word, static_cast<const std::uint8_t *>(source) + at, sizeof word);
    shared_detail::word_at<Word>(field, at).store(word, std::memory_order_relaxed);
  });
}

inline void shared_clear(void *field, std::size_t size) {
  shared_detail::each_word(field, size, [&]<typename Word>(std::size_t at, Word) {
    shared_detail::word_at<Word>(field, at).store(Word{0}, std::memory_order_relaxed);
  });
}

// A private copy of a shared record.
template <typename T>
T shared_copy(const T &field) {
  static_assert(std::is_trivially_copyable_v<T>);
  T copy;
  shared_read(&copy, &field, sizeof copy);
  return copy;
}

}  // namespace lum
