#include "api/peer_user.h"

#include <pwd.h>

#include <array>
#include <cstdio>
#include <memory>

namespace lumd {
namespace {

constexpr const char *users_file = "/etc/passwd";

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

}  // namespace lumd
