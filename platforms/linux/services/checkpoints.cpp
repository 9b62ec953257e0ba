// The checkpoint service over one store. One lock serialises every call.
#include "lum_linux/checkpoints.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <new>

#include "chkpt.h"
#include "lum_linux/system.h"
#include "services/checkpoint_store.h"

namespace {

using lum_linux::checkpoint_store;
using lum_linux::lost_record;
using lum_linux::record_key;

struct table {
  uint32_t kind;
  uint32_t version;
  bool found;
};

struct iterator {
  uint64_t table;
  uint64_t last_id;
};

// Lives until the process ends.
struct checkpoint_service {
  std::mutex lock;
  lum_linux::checkpoint_status status;  // but for the number of entries
  std::unique_ptr<checkpoint_store> store;
  std::map<uint64_t, table> tables;
  std::map<uint64_t, iterator> iterators;
  std::map<record_key, std::string> lost;  // why
  uint64_t last_handle = 0;                // of tables and iterators; never given out twice

  const table *table_of(uint64_t handle) const {
    const auto found = tables.find(handle);
    return found == tables.end() ? nullptr : &found->second;
  }

  void start_over(const std::filesystem::path &file) {
    status = {};
    status.file = file;
    lost.clear();
  }

  cerrno wrote(cerrno rc) {
    if (rc == 0) ++status.writes;
    return read(rc);
  }

  // An entry that is not there is an answer, not a failure.
  cerrno read(cerrno rc) {
    if (rc == 0 || rc == ENOENT) return rc;
    ++status.failures;
    status.last_failure =
        rc == EBADMSG || rc == ENODATA || rc == EEXIST ? cerr_strerror(rc) : store->failure_text();
    return rc;
  }
};

checkpoint_service &service() {
  static checkpoint_service &the_service = *new checkpoint_service;
  return the_service;
}

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

void report(const std::string &line) {
  lum_linux::system_log(line);
  std::fprintf(stderr, "%s\n", line.c_str());
}

// Each record that was lost has its line.
void tell_of(checkpoint_service &s, const std::vector<lost_record> &all) {
  for (const lost_record &one : all) {
    if (!s.lost.emplace(one.record, one.reason).second) continue;
    report("checkpoint store " + s.status.file.string() + ": " + name_of(one.record) +
           " is lost: " + one.reason);
  }
}

// The record is whole again, or is not to be.
void mend(checkpoint_service &s, uint32_t kind, uint64_t id) {
  uint32_t key = 0;
  if (!s.lost.empty() && s.store->key_of(kind, id, key) == 0) s.lost.erase({kind, key});
}

cerrno open_store(checkpoint_service &s, const chkpt_appdesc *descriptor) {
  const std::filesystem::path file = s.status.file;
  std::error_code error;
  if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path(), error);
  if (error) return static_cast<cerrno>(error.value());
  auto opened = checkpoint_store::open(
      file, {name_in(descriptor), word_at(descriptor, CHKPT_APPDESC_VERSION)});
  s.start_over(file);
  if (!opened.set_aside.empty()) {
    s.status.set_aside = opened.set_aside;
    s.status.set_aside_reason = opened.set_aside_reason;
    report("checkpoint store " + file.string() + " cannot be used (" + opened.set_aside_reason +
           "), set aside as " + opened.set_aside.string());
  }
  if (opened.code != 0) {
    ++s.status.failures;
    s.status.last_failure = opened.failure;
    report("checkpoint store " + file.string() +
           " cannot be opened and is left as it is: " + opened.failure);
    return opened.code;
  }
  for (const std::string &note : opened.notes) {
    report("checkpoint store " + file.string() + ": " + note);
  }
  tell_of(s, opened.lost);
  s.store = std::move(opened.store);
  s.status.open = true;
  return 0;
}

// Runs a call of the service with the lock held; no exception leaves it.
template <typename Call>
cerrno guarded(Call call) {
  try {
    checkpoint_service &s = service();
    const std::lock_guard hold(s.lock);
    return call(s);
  } catch (const std::bad_alloc &) {
    return ENOMEM;
  } catch (const std::exception &) {
    return EIO;
  }
}

// As above for a call on a table that is registered.
template <typename Call>
cerrno with_table(uint64_t handle, Call call) {
  return guarded([&](checkpoint_service &s) -> cerrno {
    const table *known = s.table_of(handle);
    return known == nullptr ? static_cast<cerrno>(EINVAL) : call(s, *known);
  });
}

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

cerrno chkpt_init(uint32_t flags, const chkpt_appdesc *descriptor) {
  if (flags != 0 || descriptor == nullptr) return EINVAL;
  return guarded([&](checkpoint_service &s) -> cerrno {
    if (s.store != nullptr) return CHKPT_ALREADY_INITIALISED;
    if (s.status.file.empty()) return ENOENT;
    return open_store(s, descriptor);
  });
}

// Only keyed tables can be had. A table registered once more keeps its handle.
cerrno chkpt_register(const chkpt_tbldesc *descriptor, uint32_t kind, uint32_t *restart,
                      uint64_t *table_out) {
  if (descriptor == nullptr || restart == nullptr || table_out == nullptr) return EINVAL;
  if (word_at(descriptor, CHKPT_TBLDESC_KEYED) == 0) return EINVAL;
  return guarded([&](checkpoint_service &s) -> cerrno {
    if (s.store == nullptr) return EINVAL;
    const uint32_t version = word_at(descriptor, CHKPT_TBLDESC_VERSION);
    auto known = std::find_if(s.tables.begin(), s.tables.end(),
                              [&](const auto &entry) { return entry.second.kind == kind; });
    if (known == s.tables.end()) {
      bool found = false;
      const bool persistent = word_at(descriptor, CHKPT_TBLDESC_PERSISTENT) != 0;
      std::vector<lost_record> lost;
      const cerrno rc = s.read(s.store->add_table(kind, version, persistent, found, lost));
      if (rc != 0) return rc;
      tell_of(s, lost);
      known = s.tables.emplace(++s.last_handle, table{kind, version, found}).first;
    } else if (known->second.version != version) {
      return EEXIST;
    }
    s.status.restart = s.status.restart || known->second.found;
    *restart = known->second.found ? 1 : 0;
    *table_out = known->first;
    return 0;
  });
}

// The key says everything here, so the node is not needed.
cerrno chkpt_mapkey(uint64_t table_handle, uint32_t key, uint64_t *id, uint32_t) {
  if (id == nullptr) return EINVAL;
  return with_table(table_handle, [&](checkpoint_service &s, const table &t) {
    return s.read(s.store->find(t.kind, key, *id));
  });
}

cerrno chkpt_create(uint64_t table_handle, uint32_t key, uint64_t *id) {
  if (id == nullptr) return EINVAL;
  return with_table(table_handle, [&](checkpoint_service &s, const table &t) {
    return s.wrote(s.store->create(t.kind, key, *id));
  });
}

cerrno chkpt_get(uint64_t table_handle, uint64_t id, uint32_t flags, void *buffer, uint32_t *size) {
  if (flags != 0 || buffer == nullptr || size == nullptr) return EINVAL;
  return with_table(table_handle, [&](checkpoint_service &s, const table &t) {
    return s.read(s.store->load(t.kind, id, t.version, as_bytes(buffer, *size)));
  });
}

cerrno chkpt_save(uint64_t table_handle, uint64_t id, const void *record, uint32_t size) {
  if (record == nullptr && size != 0) return EINVAL;
  return with_table(table_handle, [&](checkpoint_service &s, const table &t) {
    const std::span data(static_cast<const std::byte *>(record), size);
    const cerrno rc = s.wrote(s.store->save(t.kind, id, t.version, data));
    if (rc == 0) mend(s, t.kind, id);
    return rc;
  });
}

cerrno chkpt_delete(uint64_t table_handle, uint64_t id) {
  return with_table(table_handle, [&](checkpoint_service &s, const table &t) {
    uint32_t key = 0;
    const bool known = s.store->key_of(t.kind, id, key) == 0;
    const cerrno rc = s.wrote(s.store->remove(t.kind, id));
    if (rc == 0 && known) s.lost.erase({t.kind, key});
    return rc;
  });
}

cerrno chkpt_iterate_start(uint64_t table_handle, uint64_t *iterator_out) {
  if (iterator_out == nullptr) return EINVAL;
  return with_table(table_handle, [&](checkpoint_service &s, const table &) -> cerrno {
    s.iterators.emplace(++s.last_handle, iterator{table_handle, 0});
    *iterator_out = s.last_handle;
    return 0;
  });
}

// Steps over an entry also when it is refused, so the walk can go on behind it.
cerrno chkpt_iterate_next(uint64_t iterator_handle, uint32_t flags, uint64_t *id, void *buffer,
                          uint32_t *size) {
  if (flags != 0 || id == nullptr || buffer == nullptr || size == nullptr) return EINVAL;
  return guarded([&](checkpoint_service &s) -> cerrno {
    const auto found = s.iterators.find(iterator_handle);
    if (found == s.iterators.end()) return EINVAL;
    iterator &at = found->second;
    const table &t = *s.table_of(at.table);
    uint64_t next_id = 0;
    if (const cerrno rc = s.read(s.store->next(t.kind, at.last_id, next_id)); rc != 0) return rc;
    if (next_id != 0) {
      at.last_id = next_id;
      const cerrno rc = s.read(s.store->load(t.kind, next_id, t.version, as_bytes(buffer, *size)));
      if (rc != 0) return rc;
    }
    *id = next_id;
    return 0;
  });
}

cerrno chkpt_iterate_end(uint64_t iterator_handle) {
  return guarded([&](checkpoint_service &s) -> cerrno {
    return s.iterators.erase(iterator_handle) == 1 ? 0 : EINVAL;
  });
}

namespace lum_linux {

cerrno checkpoints_set_path(const std::filesystem::path &file) {
  if (file.empty()) return EINVAL;
  return guarded([&](checkpoint_service &s) -> cerrno {
    if (s.store != nullptr) return EBUSY;
    s.start_over(std::filesystem::absolute(file));
    return 0;
  });
}

void checkpoints_close() {
  guarded([](checkpoint_service &s) -> cerrno {
    s.store.reset();
    s.tables.clear();
    s.iterators.clear();
    s.status.open = false;
    return 0;
  });
}

void checkpoints_tend() {
  guarded([](checkpoint_service &s) -> cerrno {
    return s.store == nullptr ? 0 : s.read(s.store->tend());
  });
}

checkpoint_status checkpoints_status() {
  const std::lock_guard hold(service().lock);
  checkpoint_status status = service().status;
  if (service().store != nullptr) {
    status.entries = service().store->entries();
    status.doubt = service().store->journal_failure();
  }
  for (const auto &[record, reason] : service().lost) {
    status.troubled.push_back({record_trouble::lost, record.kind, record.key, reason});
  }
  return status;
}

}  // namespace lum_linux
