// Who a request comes from, and may come from.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace lumd {

// The user's name, or "user NUMBER" where it has none. Reads the system's own list of users and
// asks nobody else: directories may take their time.
std::string name_of_user(uid_t user);

// The group of that name or number in the system's own list, likewise; nothing where it is not
// there.
std::optional<gid_t> find_group(const std::string &name);

}  // namespace lumd
