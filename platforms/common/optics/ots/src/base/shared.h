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

// Records and texts go byte by byte: a reader may see some bytes old and some new.
inline void shared_read(void *destination, const void *field, std::size_t size) {
  const auto *from = static_cast<const std::uint8_t *>(field);
  auto *to = static_cast<std::uint8_t *>(destination);
  for (std::size_t i = 0; i < size; ++i) to[i] = shared_load(from[i]);
}

inline void shared_write(void *field, const void *source, std::size_t size) {
  const auto *from = static_cast<const std::uint8_t *>(source);
  auto *to = static_cast<std::uint8_t *>(field);
  for (std::size_t i = 0; i < size; ++i) shared_store(to[i], from[i]);
}

inline void shared_clear(void *field, std::size_t size) {
  auto *to = static_cast<std::uint8_t *>(field);
  for (std::size_t i = 0; i < size; ++i) shared_store(to[i], std::uint8_t{0});
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
