// What is wrong with a module on an I2C bus, beyond the code of the access that failed.
#pragma once

#include <cstdint>
#include <string>

#include "cerr.h"

namespace lum_linux {

enum class i2c_trouble_kind : uint8_t {
  none,
  no_bus,               // the file is no I2C bus
  no_way,               // the adapter offers nothing that a module can be read by
  taken,                // a driver of the kernel has the address
  answered_everywhere,  // at an address that nobody has, `wanted`
  bank_not_taken,       // `shown` stands where `wanted` was written
  page_not_taken,
  turned,       // the page `wanted` became `shown` while it was read, over and over
  short_block,  // a block read brought `shown` bytes
  transfer,     // a transfer failed with `code`
};

struct i2c_trouble {
  i2c_trouble_kind kind = i2c_trouble_kind::none;
  unsigned wanted = 0;
  unsigned shown = 0;
  cerrno code = 0;
};

struct i2c_trouble_place {
  std::string bus;
  unsigned address = 0;
  std::string driver;  // the kernel's that has the address, where it is known
};

// For people; empty when the code says all that is known.
std::string describe(const i2c_trouble &trouble, const i2c_trouble_place &at);

}  // namespace lum_linux
