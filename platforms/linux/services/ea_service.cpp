// The entity-agent service: hands batches to the server that has registered.
#include "lum_linux/entity_agent.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <mutex>

#include "ea_server.h"
#include "imc.h"
#include "services/immortal.h"
#include "services/one_at_a_time.h"

namespace {

using lum_linux::ea_entry;

constexpr size_t most_entries = 4096;

struct server_place {
  std::mutex lock;  // guards the registration; not held while the server runs
  std::optional<ea_server_registration> registration;
  lum_linux::one_at_a_time gate;  // entered before the lock is taken
};

server_place &place() {
  static lum_linux::immortal<server_place> the_place;
  return *the_place;
}

std::optional<ea_server_registration> registration() {
  const std::lock_guard hold(place().lock);
  return place().registration;
}

// A record of the server's, in words so that its numbers are aligned.
class record {
 public:
  record(size_t head, size_t entries, size_t entry_size)
      : words_((head + entries * entry_size + sizeof(uint64_t) - 1) / sizeof(uint64_t)) {}
  uint8_t *at(size_t position) { return reinterpret_cast<uint8_t *>(words_.data()) + position; }
  void put(size_t position, uint32_t value) { std::memcpy(at(position), &value, sizeof value); }

 private:
  std::vector<uint64_t> words_;
};

bool fits(const ea_entry &entry) {
  return entry.ifname.size() < EA_SERVER_NAME_SIZE && entry.ifname.find('\0') == std::string::npos;
}

// The library ends the process over a name of a port that leaves the sub-port out.
bool lacks_sub_port(const ea_entry &entry) {
  imc_ifname_info info = {};
  return imc_ifname_parse(entry.ifname.c_str(), 0, &info) == 0 && info.sub_port_valid == 0;
}

record request_of(std::span<const ea_entry> entries) {
  record request(EA_REQUEST_ENTRIES, entries.size(), EA_REQUEST_ENTRY_SIZE);
  request.put(EA_REQUEST_COUNT, static_cast<uint32_t>(entries.size()));
  size_t at = EA_REQUEST_ENTRIES;
  for (const ea_entry &entry : entries) {
    std::memcpy(request.at(at + EA_REQUEST_ENTRY_IFNAME), entry.ifname.data(), entry.ifname.size());
    request.put(at + EA_REQUEST_ENTRY_IFHANDLE, entry.ifhandle);
    *request.at(at + EA_REQUEST_ENTRY_ADMIN) = entry.admin;
    *request.at(at + EA_REQUEST_ENTRY_STATE_READY) = entry.state_ready;
    at += EA_REQUEST_ENTRY_SIZE;
  }
  return request;
}

}  // namespace

cerrno ea_server_register(const ea_server_registration *server) {
  if (server == nullptr || server->dispatch == nullptr) return EINVAL;
  const std::lock_guard hold(place().lock);
  if (place().registration) return EEXIST;
  place().registration = *server;
  place().registration->name[EA_SERVER_NAME_SIZE - 1] = '\0';
  return 0;
}

namespace lum_linux {

cerrno ea_run(uint32_t operation, std::span<const ea_entry> entries, std::vector<bool> &served) {
  if (entries.size() > most_entries || !std::all_of(entries.begin(), entries.end(), fits) ||
      std::any_of(entries.begin(), entries.end(), lacks_sub_port)) {
    return EINVAL;
  }
  try {
    record request = request_of(entries);
    record reply(EA_REPLY_ENTRIES, entries.size(), EA_REPLY_ENTRY_SIZE);
    const entered gate(place().gate);
    if (!gate) return EDEADLK;
    const auto server = registration();
    if (!server) return ENOTCONN;
    server->dispatch(operation, request.at(0), reply.at(0));
    served.assign(entries.size(), false);
    for (size_t i = 0; i < entries.size(); ++i) {
      served[i] = *reply.at(EA_REPLY_ENTRIES + i * EA_REPLY_ENTRY_SIZE) == 1;
    }
    return 0;
  } catch (const std::exception &) {
    return ENOMEM;
  }
}

cerrno ea_connect() {
  const entered gate(place().gate);
  if (!gate) return EDEADLK;
  const auto server = registration();
  if (!server) return ENOTCONN;
  return server->connect == nullptr ? 0 : server->connect();
}

std::optional<ea_registration> ea_registered() {
  const auto server = registration();
  if (!server) return std::nullopt;
  return ea_registration{server->name, server->manager, server->restart};
}

void ea_unregister() {
  const entered gate(place().gate);
  const std::lock_guard hold(place().lock);
  place().registration.reset();
}

}  // namespace lum_linux
