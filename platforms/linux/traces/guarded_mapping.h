// A mapping of a file that somebody else can cut short, or whose disk can fail: to touch what is
// not there any more ends a process, unless the mapping is guarded.
#pragma once

#include <cstddef>

namespace lum_linux {

// For as long as it lives, what cannot be had of the mapping is replaced, all of it at once, by
// memory of the process that is zero. For that SIGBUS is handled; of other mappings it goes where
// it went before. A thread that blocks SIGBUS is not protected.
class guarded_mapping {
 public:
  // There is room for some; is_guarded() says whether for this one.
  guarded_mapping(void *begin, size_t size);
  ~guarded_mapping();
  guarded_mapping(const guarded_mapping &) = delete;
  guarded_mapping &operator=(const guarded_mapping &) = delete;

  bool is_guarded() const { return place_ >= 0; }
  // Whether it was replaced. Any thread.
  bool is_lost() const;

 private:
  int place_ = -1;
};

}  // namespace lum_linux
