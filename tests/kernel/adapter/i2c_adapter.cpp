// An I2C bus device, /dev/NAME, that is played outside the kernel: what a program asks of it goes
// through the kernel's CUSE driver with its system calls as they are, and arrives here.
//
// usage: i2c_adapter NAME FOLDER   (played_bus.h says what the folder holds)
#define FUSE_USE_VERSION 31

#include <cuse_lowlevel.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/uio.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "played_bus.h"

namespace {

using kernel_test::played_bus;

// Of a descriptor: the address that I2C_SLAVE gave it.
struct open_device {
  uint16_t address = 0;
};

open_device &device_of(const fuse_file_info *file) {
  return *reinterpret_cast<open_device *>(file->fh);
}

played_bus &bus_of(fuse_req_t request) {
  return *static_cast<played_bus *>(fuse_req_userdata(request));
}

void open_bus(fuse_req_t request, fuse_file_info *file) {
  file->fh = reinterpret_cast<uint64_t>(new open_device());
  fuse_reply_open(request, file);
}

void release_bus(fuse_req_t request, fuse_file_info *file) {
  delete &device_of(file);
  fuse_reply_err(request, 0);
}

unsigned long functions_of(const std::set<std::string> &behaviour) {
  const unsigned long bytes =
      I2C_FUNC_SMBUS_READ_BYTE | I2C_FUNC_SMBUS_READ_BYTE_DATA | I2C_FUNC_SMBUS_WRITE_BYTE_DATA;
  if (behaviour.contains("offers-nothing")) return I2C_FUNC_SMBUS_QUICK;
  if (behaviour.contains("offers-bytes")) return bytes;
  if (behaviour.contains("offers-blocks")) return bytes | I2C_FUNC_SMBUS_READ_I2C_BLOCK;
  return I2C_FUNC_I2C | bytes | I2C_FUNC_SMBUS_READ_I2C_BLOCK;
}

// What every transfer meets first; 0 or an errno.
int meet(played_bus &bus) {
  bus.wait_while_hanging();
  const auto behaviour = bus.behaviour();
  if (behaviour.contains("slow")) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  if (behaviour.contains("refuses")) return EOPNOTSUPP;
  return behaviour.contains("arbitration") ? EAGAIN : 0;
}

// The kernel hands over what the arguments point to step by step, as it is asked for each time.
struct argument {
  const char *bytes;
  size_t size;

  template <typename T>
  T get(size_t at) const {
    T value;
    std::memcpy(&value, bytes + at, sizeof value);
    return value;
  }
};

void ask_functions(fuse_req_t request, void *where, size_t out_size) {
  if (out_size == 0) {
    const iovec out = {where, sizeof(unsigned long)};
    fuse_reply_ioctl_retry(request, nullptr, 0, &out, 1);
    return;
  }
  const unsigned long functions = functions_of(bus_of(request).behaviour());
  fuse_reply_ioctl(request, 0, &functions, sizeof functions);
}

// The messages of one I2C_RDWR, with the bytes that it writes.
class messages {
 public:
  explicit messages(const argument &in) : in_(in) {
    const auto data = in.get<i2c_rdwr_ioctl_data>(0);
    for (uint32_t i = 0; i < data.nmsgs; ++i) {
      all_.push_back(in.get<i2c_msg>(sizeof data + i * sizeof(i2c_msg)));
    }
  }

  // Asks for the messages' own bytes, unless they are there.
  bool complete(fuse_req_t request, void *where, size_t out_size) const {
    std::vector<iovec> in = {{where, sizeof(i2c_rdwr_ioctl_data)},
                             {in_.get<i2c_rdwr_ioctl_data>(0).msgs, all_.size() * sizeof(i2c_msg)}};
    std::vector<iovec> out;
    size_t wanted_in = in[0].iov_len + in[1].iov_len;
    size_t wanted_out = 0;
    for (const i2c_msg &one : all_) {
      const bool is_read = one.flags & I2C_M_RD;
      (is_read ? out : in).push_back({one.buf, one.len});
      (is_read ? wanted_out : wanted_in) += one.len;
    }
    if (in_.size == wanted_in && out_size == wanted_out) return true;
    fuse_reply_ioctl_retry(request, in.data(), in.size(), out.data(), out.size());
    return false;
  }

  void carry_out(fuse_req_t request) const {
    played_bus &bus = bus_of(request);
    std::vector<uint8_t> read;
    size_t written = sizeof(i2c_rdwr_ioctl_data) + all_.size() * sizeof(i2c_msg);
    int rc = meet(bus);
    std::optional<uint8_t> offset;
    for (const i2c_msg &one : all_) {
      if (rc != 0) break;
      std::vector<uint8_t> bytes(one.len);
      if (one.flags & I2C_M_RD) {
        rc = offset ? bus.read(one.addr, *offset, bytes) : bus.probe(one.addr);
        read.insert(read.end(), bytes.begin(), bytes.end());
        continue;
      }
      std::memcpy(bytes.data(), in_.bytes + written, bytes.size());
      written += bytes.size();
      offset = bytes[0];
      if (bytes.size() > 1) rc = bus.write(one.addr, bytes[0], bytes[1]);
    }
    if (rc != 0) {
      fuse_reply_err(request, rc);
      return;
    }
    const int done = static_cast<int>(all_.size()) - (bus.behaviour().contains("short") ? 1 : 0);
    fuse_reply_ioctl(request, done, read.data(), read.size());
  }

 private:
  argument in_;
  std::vector<i2c_msg> all_;
};

void transfer(fuse_req_t request, void *where, const argument &in, size_t out_size) {
  const iovec first = {where, sizeof(i2c_rdwr_ioctl_data)};
  if (in.size < sizeof(i2c_rdwr_ioctl_data)) {
    fuse_reply_ioctl_retry(request, &first, 1, nullptr, 0);
    return;
  }
  const auto data = in.get<i2c_rdwr_ioctl_data>(0);
  if (in.size < sizeof data + data.nmsgs * sizeof(i2c_msg)) {
    const iovec both[] = {first, {data.msgs, data.nmsgs * sizeof(i2c_msg)}};
    fuse_reply_ioctl_retry(request, both, 2, nullptr, 0);
    return;
  }
  const messages asked(in);
  if (asked.complete(request, where, out_size)) asked.carry_out(request);
}

// 0 or an errno.
int carry_out(played_bus &bus, uint16_t address, const i2c_smbus_ioctl_data &asked,
              i2c_smbus_data &data) {
  if (const int rc = meet(bus)) return rc;
  if (asked.size == I2C_SMBUS_BYTE) return bus.probe(address);
  if (asked.size == I2C_SMBUS_BYTE_DATA && asked.read_write == I2C_SMBUS_WRITE) {
    return bus.write(address, asked.command, data.byte);
  }
  if (asked.size == I2C_SMBUS_BYTE_DATA) {
    std::vector<uint8_t> byte(1);
    const int rc = bus.read(address, asked.command, byte);
    data.byte = byte[0];
    return rc;
  }
  if (asked.size != I2C_SMBUS_I2C_BLOCK_DATA || asked.read_write != I2C_SMBUS_READ) {
    return EOPNOTSUPP;
  }
  std::vector<uint8_t> bytes(data.block[0]);
  const int rc = bus.read(address, asked.command, bytes);
  std::memcpy(data.block + 1, bytes.data(), bytes.size());
  if (bus.behaviour().contains("short")) data.block[0] = 7;
  return rc;
}

void transfer_smbus(fuse_req_t request, void *where, const fuse_file_info *file,
                    const argument &in) {
  const iovec first = {where, sizeof(i2c_smbus_ioctl_data)};
  if (in.size < sizeof(i2c_smbus_ioctl_data)) {
    fuse_reply_ioctl_retry(request, &first, 1, nullptr, 0);
    return;
  }
  const auto asked = in.get<i2c_smbus_ioctl_data>(0);
  const iovec second = {asked.data, sizeof(i2c_smbus_data)};
  if (in.size < sizeof asked + sizeof(i2c_smbus_data)) {
    const iovec both[] = {first, second};
    fuse_reply_ioctl_retry(request, both, 2, &second, 1);
    return;
  }
  auto data = in.get<i2c_smbus_data>(sizeof asked);
  const int rc = carry_out(bus_of(request), device_of(file).address, asked, data);
  if (rc != 0) {
    fuse_reply_err(request, rc);
  } else {
    fuse_reply_ioctl(request, 0, &data, sizeof data);
  }
}

void control(fuse_req_t request, int command, void *where, fuse_file_info *file, unsigned,
             const void *bytes, size_t in_size, size_t out_size) {
  const argument in = {static_cast<const char *>(bytes), in_size};
  switch (static_cast<unsigned>(command)) {
    case I2C_FUNCS:
      return ask_functions(request, where, out_size);
    case I2C_SLAVE:
      device_of(file).address = static_cast<uint16_t>(reinterpret_cast<uintptr_t>(where));
      fuse_reply_ioctl(request, 0, nullptr, 0);
      return;
    case I2C_RDWR:
      return transfer(request, where, in, out_size);
    case I2C_SMBUS:
      return transfer_smbus(request, where, file, in);
    default:
      fuse_reply_err(request, ENOTTY);
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s NAME FOLDER\n", argv[0]);
    return 2;
  }
  played_bus bus(argv[2]);
  const std::string name = std::string("DEVNAME=") + argv[1];
  const char *settings[] = {name.c_str()};
  cuse_info info = {};
  info.dev_info_argc = 1;
  info.dev_info_argv = settings;
  info.flags = CUSE_UNRESTRICTED_IOCTL;
  cuse_lowlevel_ops calls = {};
  calls.open = open_bus;
  calls.release = release_bus;
  calls.ioctl = control;
  char foreground[] = "-f";
  char *words[] = {argv[0], foreground};
  return cuse_lowlevel_main(2, words, &info, &calls, &bus);
}
