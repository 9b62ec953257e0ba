// The calls of chkpt.h. One lock serialises them.
#include <cerrno>
#include <cstring>

#include "chkpt.h"
#include "services/checkpoint_service.h"

namespace {

using lum_linux::checkpoint_service;
using lum_linux::the_checkpoint_service;

uint32_t word_at(const void *record, size_t position) {
  uint32_t value;
  std::memcpy(&value, static_cast<const char *>(record) + position, sizeof value);
  return value;
}

template <typename Value>
void put_at(void *record, size_t position, Value value) {
  std::memcpy(static_cast<char *>(record) + position, &value, sizeof value);
}

std::string name_in(const chkpt_appdesc *descriptor) {
  const char *text = reinterpret_cast<const char *>(descriptor) + CHKPT_APPDESC_NAME;
  return std::string(text, strnlen(text, CHKPT_APPDESC_NAME_SIZE));
}

template <typename Call>
cerrno guarded(Call call) {
  return the_checkpoint_service().guarded(call);
}

// As above for a call on a table that is registered.
template <typename Call>
cerrno with_table(uint64_t handle, Call call) {
  return guarded([&](checkpoint_service &s) -> cerrno {
    const checkpoint_service::table *known = s.table_of(handle);
    return known == nullptr ? static_cast<cerrno>(EINVAL) : call(s, *known);
  });
}

using table = checkpoint_service::table;

std::span<std::byte> as_bytes(void *buffer, uint32_t size) {
  return {static_cast<std::byte *>(buffer), size};
}

}  // namespace

void chkpt_appdesc_init(chkpt_appdesc *descriptor) {
  if (descriptor == nullptr) return;
  *descriptor = {};
  put_at<uint32_t>(descriptor, CHKPT_APPDESC_VERSION, 1);
}

// By default a table is not keyed and does not persist; the number of entries is what to expect,
// not a limit.
void chkpt_tbldesc_init(chkpt_tbldesc *descriptor) {
  if (descriptor == nullptr) return;
  *descriptor = {};
  put_at<uint32_t>(descriptor, CHKPT_TBLDESC_VERSION, 1);
  put_at<uint16_t>(descriptor, CHKPT_TBLDESC_ENTRIES, 1024);
}

// Starts also when the store cannot be had: see the service.
cerrno chkpt_init(uint32_t flags, const chkpt_appdesc *descriptor) {
  if (flags != 0 || descriptor == nullptr) return EINVAL;
  return guarded([&](checkpoint_service &s) -> cerrno {
    if (s.is_started()) return CHKPT_ALREADY_INITIALISED;
    return s.start({name_in(descriptor), word_at(descriptor, CHKPT_APPDESC_VERSION)});
  });
}

// Only keyed tables can be had.
cerrno chkpt_register(const chkpt_tbldesc *descriptor, uint32_t kind, uint32_t *restart,
                      uint64_t *table_out) {
  if (descriptor == nullptr || restart == nullptr || table_out == nullptr) return EINVAL;
  if (word_at(descriptor, CHKPT_TBLDESC_KEYED) == 0) return EINVAL;
  return guarded([&](checkpoint_service &s) -> cerrno {
    const uint32_t version = word_at(descriptor, CHKPT_TBLDESC_VERSION);
    const bool persistent = word_at(descriptor, CHKPT_TBLDESC_PERSISTENT) != 0;
    bool found = false;
    const cerrno rc = s.add_table(kind, version, persistent, *table_out, found);
    if (rc == 0) *restart = found ? 1 : 0;
    return rc;
  });
}

// The key says everything here, so the node is not needed.
cerrno chkpt_mapkey(uint64_t table_handle, uint32_t key, uint64_t *id, uint32_t) {
  if (id == nullptr) return EINVAL;
  return with_table(table_handle,
                    [&](checkpoint_service &s, const table &t) { return s.map_key(t, key, *id); });
}

cerrno chkpt_create(uint64_t table_handle, uint32_t key, uint64_t *id) {
  if (id == nullptr) return EINVAL;
  return with_table(table_handle,
                    [&](checkpoint_service &s, const table &t) { return s.create(t, key, *id); });
}

cerrno chkpt_get(uint64_t table_handle, uint64_t id, uint32_t flags, void *buffer, uint32_t *size) {
  if (flags != 0 || buffer == nullptr || size == nullptr) return EINVAL;
  return with_table(table_handle, [&](checkpoint_service &s, const table &t) {
    return s.load(t, id, as_bytes(buffer, *size));
  });
}

cerrno chkpt_save(uint64_t table_handle, uint64_t id, const void *record, uint32_t size) {
  if (record == nullptr && size != 0) return EINVAL;
  return with_table(table_handle, [&](checkpoint_service &s, const table &t) {
    return s.save(t, id, {static_cast<const std::byte *>(record), size});
  });
}

cerrno chkpt_delete(uint64_t table_handle, uint64_t id) {
  return with_table(table_handle,
                    [&](checkpoint_service &s, const table &t) { return s.remove(t, id); });
}

cerrno chkpt_iterate_start(uint64_t table_handle, uint64_t *iterator_out) {
  if (iterator_out == nullptr) return EINVAL;
  return with_table(table_handle, [&](checkpoint_service &s, const table &) {
    return s.start_walk(table_handle, *iterator_out);
  });
}

cerrno chkpt_iterate_next(uint64_t iterator_handle, uint32_t flags, uint64_t *id, void *buffer,
                          uint32_t *size) {
  if (flags != 0 || id == nullptr || buffer == nullptr || size == nullptr) return EINVAL;
  return guarded(
      [&](checkpoint_service &s) { return s.next(iterator_handle, *id, as_bytes(buffer, *size)); });
}

cerrno chkpt_iterate_end(uint64_t iterator_handle) {
  return guarded([&](checkpoint_service &s) { return s.end_walk(iterator_handle); });
}
