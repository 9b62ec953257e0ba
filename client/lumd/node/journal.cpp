#include "node/journal.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

namespace lumd {
namespace {

constexpr char journal_socket[] = "/run/systemd/journal/socket";

// The library's own call waits for as long as the journal's queue is full, so that is asked before.
bool takes_an_entry() {
  const int probe = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (probe < 0) return false;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, journal_socket, sizeof journal_socket);
  const bool is_there =
      ::connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
  pollfd asked = {probe, POLLOUT, 0};
  const bool takes = is_there && ::poll(&asked, 1, 0) == 1 && (asked.revents & POLLOUT) != 0;
  ::close(probe);
  return takes;
}

std::string journal_field(const std::string &name, const std::string &value) {
  std::string field = "LUM_";
  for (const char one : name) field += static_cast<char>(std::toupper(one));
  return field + "=" + value;
}

}  // namespace

bool is_journal(int descriptor) {
  const char *stream = std::getenv("JOURNAL_STREAM");
  struct stat at = {};
  if (stream == nullptr || ::fstat(descriptor, &at) != 0) return false;
  return fmt::format("{}:{}", at.st_dev, at.st_ino) == stream;
}

bool tell_journal(int priority, const std::string &message,
                  const std::vector<std::pair<std::string, std::string>> &facts) {
  if (!takes_an_entry()) return false;
  std::vector<std::string> fields = {"MESSAGE=" + message, fmt::format("PRIORITY={}", priority),
                                     "SYSLOG_IDENTIFIER=lumd"};
  for (const auto &[name, value] : facts) fields.push_back(journal_field(name, value));
  std::vector<iovec> parts;
  parts.reserve(fields.size());
  for (std::string &field : fields) parts.push_back({field.data(), field.size()});
  // Without the place in the source, which the macro of this name adds.
  return (sd_journal_sendv)(parts.data(), static_cast<int>(parts.size())) == 0;
}

}  // namespace lumd
