// Who a request comes from.
#pragma once

#include <sys/types.h>

#include <string>

namespace lumd {

// The user's name, or "user NUMBER" where it has none. Reads the system's own list of users and
// asks nobody else: directories may take their time.
std::string name_of_user(uid_t user);

}  // namespace lumd
