// A listening Unix socket in the file system. It is reached through its folder's descriptor, so
// that a path may be longer than the 107 bytes that a socket's address holds.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace lumd {

class unix_listener {
 public:
  unix_listener() = default;
  ~unix_listener();
  unix_listener(const unix_listener &) = delete;
  unix_listener &operator=(const unix_listener &) = delete;

  // Listens at `path` with mode 0600; what an ended driver has left there is replaced. Returns the
  // socket, which the caller closes, or -1 with `error` saying what failed, for example that
  // another driver is there. Waits for nobody, a driver that has been stopped included.
  int open(const std::filesystem::path &path, std::string &error);

  // Takes the path away again, if it is still this socket's.
  void remove();

 private:
  std::string at_folder(const std::string &name) const;
  bool somebody_is_there(const std::string &address) const;

  std::string name_;
  int folder_ = -1;
  ino_t inode_ = 0;
};

}  // namespace lumd
