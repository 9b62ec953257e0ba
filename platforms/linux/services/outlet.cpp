// Sending to sockets whose reader may have stopped.
#include "lum_linux/outlet.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <string>

#include "lum_linux/disks.h"
#include "services/immortal.h"

namespace lum_linux {
namespace {

using clock = std::chrono::steady_clock;

// What is tried again while there is time: a queue that is full now.
constexpr std::chrono::milliseconds pause_between_tries(5);

bool is_full(int code) { return code == EAGAIN || code == EWOULDBLOCK || code == ENOBUFS; }

// A full queue of connections cannot be polled for.
bool rest_until(clock::time_point end) {
  if (clock::now() >= end) return false;
  const timespec rest = {0, std::chrono::nanoseconds(pause_between_tries).count()};
  ::nanosleep(&rest, nullptr);
  return true;
}

// Until the other side takes something, or there is no more time.
void wait_for_room(int socket, clock::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - clock::now());
  pollfd asked = {socket, POLLOUT, 0};
  ::poll(&asked, 1, static_cast<int>(std::max<long>(0, left.count())));
}

class outlet {
 public:
  explicit outlet(int type)
      : type_(type), socket_(::socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
  ~outlet() {
    if (socket_ >= 0) ::close(socket_);
  }
  outlet(const outlet &) = delete;
  outlet &operator=(const outlet &) = delete;

  // Each returns 0 or an errno.
  int connect(const sockaddr_un &address, socklen_t length, clock::time_point end) const {
    if (socket_ < 0) return errno;
    while (::connect(socket_, reinterpret_cast<const sockaddr *>(&address), length) != 0) {
      if (!is_full(errno) && errno != EINTR) return errno;
      if (!rest_until(end)) return ETIMEDOUT;
    }
    return 0;
  }
  int send(std::string_view text, clock::time_point end) const {
    char zero = 0;
    iovec parts[] = {{const_cast<char *>(text.data()), text.size()}, {&zero, 1}};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = type_ == SOCK_STREAM ? 2 : 1;
    do {
      wait_for_room(socket_, end);
      if (::sendmsg(socket_, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) return 0;
      if (!is_full(errno) && errno != EINTR) return errno;
    } while (rest_until(end));
    return ETIMEDOUT;
  }

 private:
  int type_;
  int socket_;
};

int send_to(std::string_view place, std::string_view text, clock::time_point end) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, place.data(), place.size());
  const bool is_abstract = place.front() == '@';
  if (is_abstract) address.sun_path[0] = '\0';
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + place.size() +
                                             (is_abstract ? 0 : 1));
  int code = 0;
  for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
    const outlet to(type);
    code = to.connect(address, length, end);
    if (code == 0) return to.send(text, end);
    if (code != EPROTOTYPE) break;
  }
  return code;
}

// Places a call to which has not come back within its bound.
struct silent_places {
  std::mutex lock;
  std::condition_variable one_has_answered;
  std::multiset<std::string, std::less<>> all;
};

silent_places &silent() {
  static immortal<silent_places> the_places;
  return *the_places;
}

// Waits until no call to the place is left behind, or says that there was no time for it.
bool answers_by(std::string_view place, clock::time_point end) {
  std::unique_lock hold(silent().lock);
  return silent().one_has_answered.wait_until(hold, end,
                                              [&] { return !silent().all.contains(place); });
}

// A text under way, kept for the thread that may stay in a call with it.
class sending {
 public:
  sending(std::string_view place, std::string_view text, clock::time_point end)
      : place_(place), text_(text), end_(end) {}

  void run() {
    const int code = send_to(place_, text_, end_);
    const std::lock_guard hold(silent().lock);
    code_ = code;
    if (!is_left_) return;
    silent().all.erase(silent().all.find(place_));
    silent().one_has_answered.notify_all();
  }
  // Its code, or that it is left behind; without memory for its place the next one may be too.
  int leave() {
    const std::lock_guard hold(silent().lock);
    if (code_ != EINPROGRESS) return code_;
    try {
      silent().all.insert(place_);
      is_left_ = true;
    } catch (const std::bad_alloc &) {
      is_left_ = false;
    }
    return ETIMEDOUT;
  }

 private:
  const std::string place_;
  const std::string text_;
  const clock::time_point end_;
  int code_ = EINPROGRESS;
  bool is_left_ = false;
};

// What a thread that has noticed the end needs to say so.
constexpr std::chrono::milliseconds grace(100);

}  // namespace

// On a thread of its own: a call may not come back although it was asked not to wait, as where the
// socket's folder is on a disk that does not answer. Without a thread or memory this one does it.
int send_within(std::chrono::milliseconds bound, std::string_view place, std::string_view text) {
  const clock::time_point end = clock::now() + bound;
  if (place.empty() || place.size() >= sizeof(sockaddr_un::sun_path)) return EINVAL;
  if (!answers_by(place, end)) return ETIMEDOUT;
  try {
    const auto mine = std::make_shared<sending>(place, text, end);
    ends_within(bound + grace, [mine] { mine->run(); });
    return mine->leave();
  } catch (const std::exception &) {
    return send_to(place, text, end);
  }
}

}  // namespace lum_linux
