#include "api/peer_user.h"

#include <pwd.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <memory>
#include <system_error>

#include "node/split.h"

namespace lumd {
namespace {

constexpr const char *users_file = "/etc/passwd";
constexpr const char *groups_file = "/etc/group";

}  // namespace

std::string name_of_user(uid_t user) {
  const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen(users_file, "re"), &std::fclose);
  std::array<char, 4096> texts{};
  passwd entry = {};
  passwd *found = nullptr;
  while (file && ::fgetpwent_r(file.get(), &entry, texts.data(), texts.size(), &found) == 0) {
    if (entry.pw_uid == user) return entry.pw_name;
  }
  return "user " + std::to_string(user);
}

// A line is name:password:number:members.
std::optional<gid_t> find_group(const std::string &name) {
  std::ifstream file(groups_file);
  for (std::string line; std::getline(file, line);) {
    const auto parts = split(line, ':');
    if (parts.size() < 3 || (parts[0] != name && parts[2] != name)) continue;
    gid_t number = 0;
    const auto read = std::from_chars(parts[2].data(), parts[2].data() + parts[2].size(), number);
    if (read.ec == std::errc() && !parts[2].empty()) return number;
  }
  return std::nullopt;
}

}  // namespace lumd
