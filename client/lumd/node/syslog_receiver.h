// A receiver of syslog lines elsewhere: RFC 5424, one line a datagram.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "lum_linux/node_description.h"

namespace lumd {

struct told_event;

// What every receiver should take at once.
constexpr std::size_t most_syslog_bytes = 2048;

// The line for one event, with its facts as structured data. Of what strangers have written, such
// as modules and who names ports, only well-formed characters that steer nothing are in it, a
// question mark for each other byte; the text for people is cut where the line would be too long.
std::string syslog_line(int priority, const told_event &one,
                        const std::vector<std::pair<std::string, std::string>> &facts,
                        const std::string &host);

// One thread at a time; nothing here waits.
class syslog_receiver {
 public:
  explicit syslog_receiver(const lum_linux::receiver_address &address);
  ~syslog_receiver();
  syslog_receiver(const syslog_receiver &) = delete;
  syslog_receiver &operator=(const syslog_receiver &) = delete;

  // Sends the event's line; whether it arrives nobody tells. Returns what is to be said of that:
  // why lines cannot be sent, once, and that they can again.
  std::string send(int priority, const told_event &one,
                   const std::vector<std::pair<std::string, std::string>> &facts);

 private:
  int send_datagram(const std::string &line);  // 0 or an errno

  lum_linux::receiver_address address_;
  std::string host_;
  int socket_ = -1;
  uint64_t unsent_ = 0;  // since the last that was sent
};

}  // namespace lumd
