#include "confine.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>

#include "base/descriptor.h"
#include "lum_linux/disks.h"

namespace lumd {
namespace {

namespace fs = std::filesystem;
using lum_client::descriptor;
using lum_linux::module_backend;
using rights = std::uint64_t;

constexpr rights truncate_right = 1ULL << 14;  // of the third version on; not in every header
constexpr int version_with_truncate = 3;
constexpr rights write_file = LANDLOCK_ACCESS_FS_WRITE_FILE | truncate_right;
constexpr rights change_folder = write_file | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                                 LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                                 LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                                 LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
                                 LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SYM;
#ifdef LUM_SANITIZED
constexpr rights handled =
    change_folder;  // a sanitizer runs a program that names what it has found
#else
constexpr rights handled = change_folder | LANDLOCK_ACCESS_FS_EXECUTE;
#endif

// What is not there yet will be made below what is.
fs::path nearest_existing(fs::path path) {
  std::error_code ignored;
  while (!fs::exists(path, ignored) && path.has_relative_path()) path = path.parent_path();
  return path;
}

bool is_below_sys(const fs::path &path) {
  const auto top = path.begin();
  return top != path.end() && std::next(top) != path.end() && *std::next(top) == "sys";
}

// The folder of a file that is written where its links lead to. The kernel's files lie below /sys,
// wherever the links there are.
fs::path place_of(const fs::path &file) {
  std::error_code error;
  const fs::path real = fs::weakly_canonical(file, error);
  if (is_below_sys(file) || (!error && is_below_sys(real))) return "/sys";
  return nearest_existing((error ? file : real).parent_path());
}

// A board's LEDs may be links to the kernel's in a folder of their own.
void allow_leds(const fs::path &folder, std::map<fs::path, rights> &places) {
  if (is_below_sys(folder)) {
    places["/sys"] |= write_file;
    return;
  }
  places[nearest_existing(folder)] |= change_folder;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (place_of(entry->path() / "brightness") == "/sys") places["/sys"] |= write_file;
  }
}

std::map<fs::path, rights> writable(const lum_linux::node_description &node) {
  std::map<fs::path, rights> places;
  for (const fs::path &folder :
       {node.state_directory, node.trace_directory, node.api_socket.parent_path()}) {
    places[nearest_existing(folder)] |= change_folder;
  }
  allow_leds(node.led_directory, places);
  for (const auto *port : node.ports()) {
    for (const auto *line : {&port->module.reset, &port->module.low_power}) {
      if (!line->file.empty()) places[place_of(line->file)] |= write_file;
    }
    if (port->module.backend == module_backend::i2c_dev) places["/dev"] |= write_file;
    if (port->module.backend == module_backend::file) {
      places[place_of(port->module.file)] |= write_file;
    }
  }
  return places;
}

}  // namespace

std::string confine_writes(const lum_linux::node_description &node) {
  for (const fs::path &folder : {node.state_directory, node.trace_directory, node.led_directory}) {
    if (lum_linux::folder_is_waited_for(folder)) {
      return folder.native() + ": its disk does not answer";
    }
  }
  const long version =
      ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (version < 1) return "the kernel has no Landlock";
  const rights known = version >= version_with_truncate ? handled : handled & ~truncate_right;
  landlock_ruleset_attr attributes = {};
  attributes.handled_access_fs = known;
  const descriptor rules(::syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0));
  if (rules.get() < 0) return std::strerror(errno);
  for (const auto &[place, allowed] : writable(node)) {
    const descriptor folder(::open(place.c_str(), O_PATH | O_CLOEXEC));
    landlock_path_beneath_attr beneath = {};
    beneath.allowed_access = allowed & known;
    beneath.parent_fd = folder.get();
    if (folder.get() < 0 || ::syscall(SYS_landlock_add_rule, rules.get(),
                                      LANDLOCK_RULE_PATH_BENEATH, &beneath, 0) != 0) {
      return place.native() + ": " + std::strerror(errno);
    }
  }
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::syscall(SYS_landlock_restrict_self, rules.get(), 0) != 0) {
    return std::strerror(errno);
  }
  return {};
}

}  // namespace lumd
