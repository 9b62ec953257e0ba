// Fills a chip of the kernel's i2c-stub with a module's memory, page by page through its page
// select, and leaves page 0 selected.
//
// usage: stub_fill BUS ADDRESS IMAGE
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

constexpr std::size_t half = 128;
constexpr uint8_t page_select = 127;

bool write_byte(int bus, uint8_t offset, uint8_t value) {
  i2c_smbus_data data = {};
  data.byte = value;
  i2c_smbus_ioctl_data asked = {I2C_SMBUS_WRITE, offset, I2C_SMBUS_BYTE_DATA, &data};
  return ::ioctl(bus, I2C_SMBUS, &asked) == 0;
}

bool fill(int bus, const std::vector<char> &image) {
  bool is_good = true;
  for (std::size_t i = 0; i < image.size() && is_good; ++i) {
    const auto page = static_cast<uint8_t>(i < half ? 0 : i / half - 1);
    const auto offset = static_cast<uint8_t>(i < half ? i : half + i % half);
    if (i >= half && i % half == 0) is_good = write_byte(bus, page_select, page);
    if (offset != page_select)
      is_good = is_good && write_byte(bus, offset, static_cast<uint8_t>(image[i]));
  }
  return is_good && write_byte(bus, page_select, 0);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s BUS ADDRESS IMAGE\n", argv[0]);
    return 2;
  }
  std::ifstream file(argv[3], std::ios::binary);
  const std::vector<char> image(std::istreambuf_iterator<char>(file), {});
  const int bus = ::open(argv[1], O_RDWR | O_CLOEXEC);
  const unsigned long address = std::strtoul(argv[2], nullptr, 0);
  if (image.size() < 2 * half || bus < 0 || ::ioctl(bus, I2C_SLAVE, address) != 0 ||
      !fill(bus, image)) {
    std::fprintf(stderr, "%s at %s cannot be filled from %s: %s\n", argv[1], argv[2], argv[3],
                 std::strerror(errno));
    return 1;
  }
  return 0;
}
