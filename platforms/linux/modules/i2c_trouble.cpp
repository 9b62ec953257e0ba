#include "modules/i2c_trouble.h"

#include <fmt/format.h>

#include <cerrno>

namespace lum_linux {
namespace {

// What the codes of adapter drivers mean on a bus (Documentation/i2c/fault-codes of the kernel).
std::string describe_code(cerrno code) {
  switch (code) {
    case EAGAIN:
      return "the adapter lost arbitration: another master is on the bus, or a line is held down";
    case EBUSY:
      return "the bus stays busy: another master is on it, or a line is held down";
    case ETIMEDOUT:
      return "the transfer timed out: the clock line may be held down";
    case EIO:
      return "the transfer was not completed";
    case EOPNOTSUPP:
      return "the adapter refuses a transfer that it says it can make";
    default:
      return {};
  }
}

std::string describe_driver(const i2c_trouble_place &at) {
  return at.driver.empty() ? "a driver of the kernel"
                           : fmt::format("the kernel's driver {}", at.driver);
}

}  // namespace

std::string describe(const i2c_trouble &trouble, const i2c_trouble_place &at) {
  switch (trouble.kind) {
    case i2c_trouble_kind::none:
      return {};
    case i2c_trouble_kind::no_bus:
      return fmt::format("{} is no I2C bus", at.bus);
    case i2c_trouble_kind::no_way:
      return fmt::format(
          "the adapter of {} offers neither plain messages nor SMBus byte transfers: a module "
          "cannot be read through it",
          at.bus);
    case i2c_trouble_kind::taken:
      return fmt::format(
          "{} has address 0x{:02x} of {} (UU in i2cdetect): unbind it, or give the port its eeprom "
          "file",
          describe_driver(at), at.address, at.bus);
    case i2c_trouble_kind::answered_everywhere:
      return fmt::format(
          "{} is answered at 0x{:02x} too, where nobody can be: a line is held down, or a chip "
          "answers on every address",
          at.bus, trouble.wanted);
    case i2c_trouble_kind::bank_not_taken:
      return fmt::format("bank {} was not taken: byte 126 holds {}", trouble.wanted, trouble.shown);
    case i2c_trouble_kind::page_not_taken:
      return fmt::format("page {} was not taken: byte 127 holds {}", trouble.wanted, trouble.shown);
    case i2c_trouble_kind::turned:
      return fmt::format(
          "somebody else uses the bus: while it was read, page or bank {} became {} time and again",
          trouble.wanted, trouble.shown);
    case i2c_trouble_kind::short_block:
      return fmt::format("a block read brought {} bytes, which is not what was asked for",
                         trouble.shown);
    case i2c_trouble_kind::transfer:
      return describe_code(trouble.code);
  }
  return {};
}

}  // namespace lum_linux
