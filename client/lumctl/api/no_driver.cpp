#include "api/no_driver.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "api/look_up.h"

namespace lumctl {
namespace {

namespace fs = std::filesystem;

constexpr mode_t permissions = 07777;
constexpr const char *other_socket = "Another socket: --socket or LUMD_SOCKET";
constexpr const char *other_port = "Its description has the port, as http_port";

// Whoever knows the names may be a machine elsewhere.
constexpr std::chrono::seconds patience_for_names(1);

std::string name_of_user(uid_t user) {
  const auto found = look_up_within(patience_for_names, [user] {
    const passwd *known = ::getpwuid(user);
    return std::string(known != nullptr ? known->pw_name : "");
  });
  return found && !found->empty() ? *found : fmt::format("user {}", user);
}

std::string name_of_group(gid_t group) {
  const auto found = look_up_within(patience_for_names, [group] {
    const ::group *known = ::getgrgid(group);
    return std::string(known != nullptr ? known->gr_name : "");
  });
  return found && !found->empty() ? *found : fmt::format("group {}", group);
}

// The socket, or the folder nearest to it that can be seen from here: it is the one that bars the
// way.
fs::path nearest_visible(fs::path path, struct stat &found) {
  while (::lstat(path.c_str(), &found) != 0 && path.has_relative_path()) path = path.parent_path();
  return path;
}

std::string why_not_allowed(const std::string &socket) {
  struct stat found = {};
  std::error_code ignored;
  const fs::path barrier = nearest_visible(fs::absolute(socket, ignored), found);
  return fmt::format(
      "{} may not open {}: {} has the owner {}, the group {} and the mode {:04o}. Use the account "
      "that lumd runs as, or root{}. {}",
      name_of_user(::geteuid()), socket,
      S_ISDIR(found.st_mode) ? "the folder " + barrier.native() : std::string("it"),
      name_of_user(found.st_uid), name_of_group(found.st_gid), found.st_mode & permissions,
      (found.st_mode & S_IWGRP) != 0 ? ", or to look be in that group" : "", other_socket);
}

}  // namespace

std::string why_no_driver(const std::string &socket, const std::error_code &error,
                          std::chrono::milliseconds patience) {
  if (error == std::errc::permission_denied) return why_not_allowed(socket);
  if (error == std::errc::timed_out) {
    return fmt::format(
        "the driver at {} has not answered within {} s. A longer wait: --timeout SECONDS", socket,
        std::chrono::duration<double>(patience).count());
  }
  return fmt::format("no driver answers at {}: {}. Is lumd running (systemctl status lumd)? {}",
                     socket, error.message(), other_socket);
}

std::string why_no_answer(const destination &driver, const std::string &why) {
  return fmt::format(
      "what answers at {} is no driver that this lumctl can talk to: the answer {}. {}",
      driver.name(), why, driver.url.empty() ? other_socket : other_port);
}

}  // namespace lumctl
