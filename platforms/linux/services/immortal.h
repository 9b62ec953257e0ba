// Objects that threads may use until the process ends.
#pragma once

#include <cstddef>
#include <new>

namespace lum_linux {

// Holds an object that is never destroyed. To be a static variable: the object then needs no memory
// but what its own constructor asks for, so that where that asks for none it is always there.
template <typename Object>
class immortal {
 public:
  immortal() : object_(new (place_) Object) {}
  immortal(const immortal &) = delete;
  immortal &operator=(const immortal &) = delete;

  Object &operator*() { return *object_; }

 private:
  alignas(Object) std::byte place_[sizeof(Object)];
  Object *object_;
};

}  // namespace lum_linux
