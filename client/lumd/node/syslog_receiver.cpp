#include "node/syslog_receiver.h"

#include <arpa/inet.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "node/event_outlets.h"
#include "wording/numbers.h"

namespace lumd {
namespace {

constexpr int facility_daemon = 3;
// The number that IANA keeps for examples, for there is none of our own.
constexpr const char *structured_data_id = "lum@32473";
constexpr std::size_t most_value_bytes = 200;
constexpr std::size_t most_host_bytes = 255;
constexpr std::size_t most_kind_bytes = 32;

// How many bytes the character at a place has; 0 when it is none, or steers something.
std::size_t character_at(std::string_view text, std::size_t at) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || at + length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  const unsigned second = byte(1);
  const bool is_control = first == 0xC2 && second < 0xA0;
  const bool is_longer_than_need =
      (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool is_half_or_beyond =
      (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
  return is_control || is_longer_than_need || is_half_or_beyond ? 0 : length;
}

// At most so many bytes of the text, whole characters; `special` ones behind a backslash.
std::string harmless(std::string_view text, std::size_t most, std::string_view special = {}) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = character_at(text, at);
    std::string next(length == 0 ? "?" : text.substr(at, length));
    if (length == 1 && special.find(next) != std::string_view::npos) next.insert(0, "\\");
    if (result.size() + next.size() > most) break;
    result += next;
    at += std::max<std::size_t>(length, 1);
  }
  return result;
}

// A word of the header: no blanks, ASCII alone; "-" where there is none.
std::string header_word(std::string_view text, std::size_t most) {
  std::string word(text.substr(0, most));
  for (char &one : word) {
    if (one <= ' ' || one > '~') one = '?';
  }
  return word.empty() ? "-" : word;
}

std::string structured_data(const std::vector<std::pair<std::string, std::string>> &facts) {
  std::string data = fmt::format("[{}", structured_data_id);
  for (const auto &[name, value] : facts) {
    data += fmt::format(" {}=\"{}\"", name, harmless(value, most_value_bytes, "\"\\]"));
  }
  return data + "]";
}

std::string time_text(std::chrono::system_clock::time_point time) {
  const auto second = std::chrono::floor<std::chrono::seconds>(time);
  const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - second);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03d}Z",
                     fmt::gmtime(std::chrono::system_clock::to_time_t(second)), rest.count());
}

std::string own_host_name() {
  std::array<char, HOST_NAME_MAX + 1> name = {};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace

std::string syslog_line(int priority, const told_event &one,
                        const std::vector<std::pair<std::string, std::string>> &facts,
                        const std::string &host) {
  const std::string head =
      fmt::format("<{}>1 {} {} lumd {} {} {} ", facility_daemon * 8 + priority,
                  time_text(one.of.time), header_word(host, most_host_bytes), ::getpid(),
                  header_word(one.of.kind, most_kind_bytes), structured_data(facts));
  const std::size_t left = head.size() < most_syslog_bytes ? most_syslog_bytes - head.size() : 0;
  return head + harmless(one.text, left);
}

syslog_receiver::syslog_receiver(const lum_linux::receiver_address &address)
    : address_(address), host_(own_host_name()) {}

syslog_receiver::~syslog_receiver() {
  if (socket_ >= 0) ::close(socket_);
}

int syslog_receiver::send_datagram(const std::string &line) {
  if (socket_ < 0) {
    socket_ = ::socket(address_.is_ipv6() ? AF_INET6 : AF_INET,
                       SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  }
  if (socket_ < 0) return errno;
  sockaddr_in6 six = {};
  sockaddr_in four = {};
  six.sin6_family = AF_INET6;
  four.sin_family = AF_INET;
  six.sin6_port = four.sin_port = htons(address_.port);
  if (address_.is_ipv6()) {
    ::inet_pton(AF_INET6, address_.host.c_str(), &six.sin6_addr);
  } else {
    ::inet_pton(AF_INET, address_.host.c_str(), &four.sin_addr);
  }
  const auto *const to = address_.is_ipv6() ? reinterpret_cast<const sockaddr *>(&six)
                                            : reinterpret_cast<const sockaddr *>(&four);
  const ssize_t sent = ::sendto(socket_, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL, to,
                                address_.is_ipv6() ? sizeof six : sizeof four);
  return sent < 0 ? errno : 0;
}

std::string syslog_receiver::send(int priority, const told_event &one,
                                  const std::vector<std::pair<std::string, std::string>> &facts) {
  const int failed = send_datagram(syslog_line(priority, one, facts, host_));
  const auto receiver = lum_linux::to_string(address_);
  if (failed != 0) {
    if (++unsent_ != 1) return {};
    return fmt::format(
        "events cannot be sent to the syslog receiver {}: {}; they are in lumctl events. A system "
        "service may send only where its unit's IPAddressAllow lets it",
        receiver, std::strerror(failed));
  }
  if (unsent_ == 0) return {};
  const auto lost = lum_wording::counted(unsent_, "event");
  unsent_ = 0;
  return fmt::format("events are sent to the syslog receiver {} again; {} were not", receiver,
                     lost);
}

}  // namespace lumd
