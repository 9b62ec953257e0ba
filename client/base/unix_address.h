// The address of a socket in the file system. It is reached through its folder's descriptor, so
// that a path may be longer than the 107 bytes that a socket's address holds.
#pragma once

#include <sys/un.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <system_error>

#include "base/descriptor.h"

namespace lum_client {

class unix_address {
 public:
  explicit unix_address(const std::filesystem::path &socket);

  // What stands against it, if anything does.
  std::error_code problem() const { return problem_; }
  int folder() const { return folder_.get(); }
  const std::string &name() const { return name_; }  // within the folder
  // Good for as long as this lives.
  const std::string &path() const { return path_; }
  sockaddr_un socket_address() const;
  // A stream connected to it, which the caller closes; -1 with `error` when that fails, as when the
  // other side takes no connection for as long as `bound`.
  int connect_within(std::chrono::milliseconds bound, std::error_code &error) const;

 private:
  descriptor folder_;
  std::error_code problem_;
  std::string name_;
  std::string path_;
};

}  // namespace lum_client
