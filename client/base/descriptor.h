// A file descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

namespace lum_client {

class descriptor {
 public:
  explicit descriptor(int number) : number_(number) {}
  ~descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  descriptor(const descriptor &) = delete;
  descriptor &operator=(const descriptor &) = delete;
  int get() const { return number_; }  // negative: there is none

 private:
  int number_;
};

}  // namespace lum_client
