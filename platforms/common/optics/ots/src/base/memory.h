// Memory that passes through C hands: zero-filled, released with free, null when there is none.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace lum {

struct c_free {
  void operator()(void *block) const { std::free(block); }
};

template <typename T>
using c_array = std::unique_ptr<T[], c_free>;

template <typename T>
using c_object = std::unique_ptr<T, c_free>;

template <typename T>
c_array<T> zeroed_array(std::size_t count) {
  return c_array<T>(static_cast<T *>(std::calloc(count, sizeof(T))));
}

template <typename T>
c_object<T> zeroed_object() {
  return c_object<T>(static_cast<T *>(std::calloc(1, sizeof(T))));
}

}  // namespace lum
