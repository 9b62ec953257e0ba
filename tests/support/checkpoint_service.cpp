#include <cerrno>
#include <cstring>

#include "checkpoints.h"
#include "record.h"
#include "script.h"

namespace support {

checkpoint_table &checkpoints = *new checkpoint_table;

uint64_t checkpoint_table::survive(uint32_t rsip, const lum_chkpt_record &record) {
  const std::lock_guard hold(lock_);
  const auto *bytes = reinterpret_cast<const uint8_t *>(&record);
  entries_[++last_id_] = {rsip, std::vector<uint8_t>(bytes, bytes + sizeof record)};
  return last_id_;
}

bool checkpoint_table::has(uint32_t key) {
  const std::lock_guard hold(lock_);
  for (const auto &[id, each] : entries_) {
    if (each.key == key) return true;
  }
  return false;
}

lum_chkpt_record checkpoint_table::record(uint32_t key) {
  const std::lock_guard hold(lock_);
  lum_chkpt_record found = {};
  for (const auto &[id, each] : entries_) {
    if (each.key == key && each.data.size() == sizeof found) {
      std::memcpy(&found, each.data.data(), sizeof found);
    }
  }
  return found;
}

// The service's calls, once their failures are decided.
struct checkpoint_calls {
  static constexpr uint64_t table_handle = 0xC0DE;
  static constexpr uint64_t iterator_handle = 0x17E2;

  static void keep_application(const chkpt_appdesc &descriptor) {
    checkpoints.application_ = descriptor;
  }
  static void keep_table(const chkpt_tbldesc &descriptor) { checkpoints.table_ = descriptor; }

  static cerrno map(uint32_t key, uint64_t *id) {
    const std::lock_guard hold(checkpoints.lock_);
    for (const auto &[each_id, each] : checkpoints.entries_) {
      if (each.key != key) continue;
      *id = each_id;
      return 0;
    }
    return ENOENT;
  }

  static void create(uint32_t key, uint64_t *id) {
    const std::lock_guard hold(checkpoints.lock_);
    *id = ++checkpoints.last_id_;
    checkpoints.entries_[*id] = {key, {}};
  }

  static cerrno read(uint64_t id, void *buffer, uint32_t *size) {
    const std::lock_guard hold(checkpoints.lock_);
    const auto found = checkpoints.entries_.find(id);
    if (found == checkpoints.entries_.end()) return ENOENT;
    if (found->second.data.size() != *size) return EINVAL;
    std::memcpy(buffer, found->second.data.data(), *size);
    return 0;
  }

  static cerrno write(uint64_t id, const void *record, uint32_t size) {
    const std::lock_guard hold(checkpoints.lock_);
    const auto found = checkpoints.entries_.find(id);
    if (found == checkpoints.entries_.end()) return ENOENT;
    const auto *bytes = static_cast<const uint8_t *>(record);
    found->second.data.assign(bytes, bytes + size);
    return 0;
  }

  static cerrno erase(uint64_t id) {
    const std::lock_guard hold(checkpoints.lock_);
    return checkpoints.entries_.erase(id) == 1 ? 0 : ENOENT;
  }

  static void start_walk() {
    const std::lock_guard hold(checkpoints.lock_);
    checkpoints.walked_ = 0;
  }

  static void step(uint64_t *id, void *buffer, uint32_t *size) {
    const std::lock_guard hold(checkpoints.lock_);
    *id = 0;
    auto next = checkpoints.entries_.upper_bound(checkpoints.walked_);
    while (next != checkpoints.entries_.end() && next->second.data.size() != *size) ++next;
    if (next == checkpoints.entries_.end()) return;
    *id = checkpoints.walked_ = next->first;
    std::memcpy(buffer, next->second.data.data(), *size);
  }
};

}  // namespace support

using namespace support;

void chkpt_appdesc_init(chkpt_appdesc *descriptor) {
  note("chkpt_appdesc_init");
  std::memset(descriptor, 0xA5, sizeof *descriptor);
}

void chkpt_tbldesc_init(chkpt_tbldesc *descriptor) {
  note("chkpt_tbldesc_init");
  std::memset(descriptor, 0x5A, sizeof *descriptor);
}

cerrno chkpt_init(uint32_t flags, const chkpt_appdesc *descriptor) {
  note("chkpt_init", flags);
  checkpoint_calls::keep_application(*descriptor);
  return script.answer("chkpt_init");
}

cerrno chkpt_register(const chkpt_tbldesc *descriptor, uint32_t kind, uint32_t *restart,
                      uint64_t *table) {
  note("chkpt_register", kind);
  checkpoint_calls::keep_table(*descriptor);
  if (const auto code = script.verdict("chkpt_register")) return *code;
  *restart = checkpoints.restart;
  *table = checkpoint_calls::table_handle;
  return 0;
}

cerrno chkpt_mapkey(uint64_t table, uint32_t key, uint64_t *id, uint32_t node) {
  note("chkpt_mapkey", hex{table}, hex{key}, hex{node});
  if (const auto code = script.verdict("chkpt_mapkey")) return *code;
  return checkpoint_calls::map(key, id);
}

cerrno chkpt_create(uint64_t table, uint32_t key, uint64_t *id) {
  note("chkpt_create", hex{table}, hex{key});
  if (const auto code = script.verdict("chkpt_create")) return *code;
  checkpoint_calls::create(key, id);
  return 0;
}

cerrno chkpt_get(uint64_t table, uint64_t id, uint32_t flags, void *buffer, uint32_t *size) {
  note("chkpt_get", hex{table}, hex{id}, flags, *size);
  if (const auto code = script.verdict("chkpt_get")) {
    *size = checkpoints.length_of_failed_get.value_or(*size);
    return *code;
  }
  return checkpoint_calls::read(id, buffer, size);
}

cerrno chkpt_save(uint64_t table, uint64_t id, const void *record, uint32_t size) {
  note("chkpt_save", hex{table}, hex{id}, size);
  if (const auto code = script.verdict("chkpt_save")) return *code;
  return checkpoint_calls::write(id, record, size);
}

cerrno chkpt_delete(uint64_t table, uint64_t id) {
  note("chkpt_delete", hex{table}, hex{id});
  if (const auto code = script.verdict("chkpt_delete")) return *code;
  return checkpoint_calls::erase(id);
}

cerrno chkpt_iterate_start(uint64_t table, uint64_t *iterator) {
  note("chkpt_iterate_start", hex{table});
  if (const auto code = script.verdict("chkpt_iterate_start")) return *code;
  checkpoint_calls::start_walk();
  *iterator = checkpoint_calls::iterator_handle;
  return 0;
}

cerrno chkpt_iterate_next(uint64_t iterator, uint32_t flags, uint64_t *id, void *buffer,
                          uint32_t *size) {
  note("chkpt_iterate_next", hex{iterator}, flags, *size);
  if (const auto code = script.verdict("chkpt_iterate_next")) return *code;
  checkpoint_calls::step(id, buffer, size);
  return 0;
}

cerrno chkpt_iterate_end(uint64_t iterator) {
  note("chkpt_iterate_end", hex{iterator});
  return script.answer("chkpt_iterate_end");
}
