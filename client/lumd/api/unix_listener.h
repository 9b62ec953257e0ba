// A listening Unix socket in the file system.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

#include "base/unix_address.h"

namespace lumd {

class unix_listener {
 public:
  unix_listener() = default;
  unix_listener(const unix_listener &) = delete;
  unix_listener &operator=(const unix_listener &) = delete;

  // Listens at `path` with mode 0600, or 0660 for `group`; what an ended driver has left there is
  // replaced. Returns the
  // socket, which the caller closes, or -1 with `error` saying what failed, for example that
  // another driver is there. Of drivers that open at the same time one gets it. Waits a second at
  // most, also for a driver that has been stopped.
  int open(const std::filesystem::path &path, std::optional<gid_t> group, std::string &error);

  // Why the group has been left out; empty when it has not.
  const std::string &why_no_group() const { return why_no_group_; }

  // After a failure: whether the folder takes no socket, so that another folder may.
  bool folder_is_unusable() const { return folder_is_unusable_; }

  // Takes the path away again, if it is still this socket's.
  void remove();

 private:
  bool clear_place(std::string &error);
  int listen(std::optional<gid_t> group, std::string &error);
  mode_t give_to(std::optional<gid_t> group);
  int fail(int code, const std::string &why, std::string &error);

  std::filesystem::path path_;
  std::optional<lum_client::unix_address> address_;
  ino_t inode_ = 0;  // of the socket made
  bool folder_is_unusable_ = false;
  std::string why_no_group_;
};

}  // namespace lumd
