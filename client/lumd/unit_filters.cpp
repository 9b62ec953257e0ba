#include "unit_filters.h"

#include <pthread.h>
#include <sys/socket.h>
#include <syslog.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <thread>
#include <vector>

#include "node/log.h"

namespace lumd {
namespace {

constexpr std::uint64_t manager_patience_us = 5'000'000;
constexpr const char *service_manager = "org.freedesktop.systemd1";

using bus_pointer = std::unique_ptr<sd_bus, decltype(&sd_bus_unref)>;
using message_pointer = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

// Addresses that begin with the same bits.
struct address_range {
  int family = 0;
  std::vector<std::uint8_t> address;
  std::uint32_t bits = 0;

  bool is_everything() const { return bits == 0; }
  bool is_loopback() const {
    static constexpr std::array<std::uint8_t, 16> v6_loopback = {0, 0, 0, 0, 0, 0, 0, 0,
                                                                 0, 0, 0, 0, 0, 0, 0, 1};
    if (family == AF_INET) return bits >= 8 && !address.empty() && address[0] == 127;
    return bits == 128 &&
           std::equal(address.begin(), address.end(), v6_loopback.begin(), v6_loopback.end());
  }
};

// Negative is the system's error, as the bus has it.
int read_ranges(sd_bus_message *message, std::vector<address_range> &ranges) {
  int code = sd_bus_message_enter_container(message, 'a', "(iayu)");
  while (code >= 0 && (code = sd_bus_message_enter_container(message, 'r', "iayu")) > 0) {
    address_range range;
    const void *bytes = nullptr;
    std::size_t count = 0;
    code = sd_bus_message_read(message, "i", &range.family);
    if (code >= 0) code = sd_bus_message_read_array(message, 'y', &bytes, &count);
    if (code >= 0) code = sd_bus_message_read(message, "u", &range.bits);
    if (code >= 0) code = sd_bus_message_exit_container(message);
    if (code < 0) break;
    const auto *const first = static_cast<const std::uint8_t *>(bytes);
    range.address.assign(first, first + count);
    ranges.push_back(std::move(range));
  }
  return code;
}

int ask(sd_bus *bus, const char *unit, const char *property, std::vector<address_range> &ranges) {
  sd_bus_message *reply = nullptr;
  const int code =
      sd_bus_get_property(bus, service_manager, unit, "org.freedesktop.systemd1.Service", property,
                          nullptr, &reply, "a(iayu)");
  const message_pointer held(reply, sd_bus_message_unref);
  return code < 0 ? code : read_ranges(reply, ranges);
}

// What the unit of this process lets in and keeps out.
int ask_manager(std::vector<address_range> &allowed, std::vector<address_range> &denied) {
  sd_bus *opened = nullptr;
  int code = sd_bus_open_system(&opened);
  if (code < 0) return code;
  const bus_pointer bus(opened, sd_bus_flush_close_unref);
  sd_bus_set_method_call_timeout(bus.get(), manager_patience_us);
  sd_bus_message *reply = nullptr;
  code = sd_bus_call_method(bus.get(), service_manager, "/org/freedesktop/systemd1",
                            "org.freedesktop.systemd1.Manager", "GetUnitByPID", nullptr, &reply,
                            "u", static_cast<std::uint32_t>(::getpid()));
  const message_pointer held(reply, sd_bus_message_unref);
  const char *unit = nullptr;
  if (code >= 0) code = sd_bus_message_read(reply, "o", &unit);
  if (code >= 0) code = ask(bus.get(), unit, "IPAddressAllow", allowed);
  if (code >= 0) code = ask(bus.get(), unit, "IPAddressDeny", denied);
  return code;
}

bool lets_nobody_in(const std::vector<address_range> &allowed,
                    const std::vector<address_range> &denied, int family) {
  const auto all_denied = [family](const address_range &range) {
    return range.family == family && range.is_everything();
  };
  const auto lets_others_in = [family](const address_range &range) {
    return range.family == family && !range.is_loopback();
  };
  return std::any_of(denied.begin(), denied.end(), all_denied) &&
         std::none_of(allowed.begin(), allowed.end(), lets_others_in);
}

bool lets_nobody_in(const std::vector<address_range> &allowed,
                    const std::vector<address_range> &denied, const std::string &address) {
  const bool v6 = address.find(':') != std::string::npos;
  if (address == "::") {  // of both families
    return lets_nobody_in(allowed, denied, AF_INET) && lets_nobody_in(allowed, denied, AF_INET6);
  }
  return lets_nobody_in(allowed, denied, v6 ? AF_INET6 : AF_INET);
}

constexpr const char *filters_remedy =
    "IPAddressAllow= in a drop-in opens it, see examples/lumd-network.conf in the documentation";

void ask_and_tell(const std::string &address) {
  std::vector<address_range> allowed, denied;
  if (const int code = ask_manager(allowed, denied); code < 0) {
    say("whether the unit lets others reach {} is not known: the service manager does not say ({})",
        address, std::strerror(-code));
  } else if (lets_nobody_in(allowed, denied, address)) {
    say_at(LOG_WARNING, fmt::format("the API is on {}, and the unit lets nobody but this machine "
                                    "reach it; {}",
                                    address, filters_remedy));
  }
}

}  // namespace

// The service manager gives every process of a unit that variable.
void tell_of_unit_filters(const std::string &address) {
  if (std::getenv("INVOCATION_ID") == nullptr) return;
  std::thread([address] {
    pthread_setname_np(pthread_self(), "lumd-unit");
    try {
      ask_and_tell(address);
    } catch (const std::exception &) {
      // Without memory there is nothing to be told.
    }
  }).detach();
}

}  // namespace lumd
