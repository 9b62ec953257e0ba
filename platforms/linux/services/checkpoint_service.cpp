#include "services/checkpoint_service.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "lum_linux/system.h"
#include "services/immortal.h"

namespace lum_linux {
namespace {

// Ids that stand for a key have this half; those of the store count from 1.
constexpr uint64_t by_key = 0x80000000;

constexpr const char *unread_reason =
    "it was not read when it was asked for, so it is kept as it was and nothing is saved over it";

uint64_t id_for(uint32_t key) { return by_key << 32 | key; }
bool is_for_key(uint64_t id) { return id >> 32 == by_key; }

}  // namespace

bool is_about_record(cerrno rc) {
  return rc == ENOENT || rc == ENODATA || rc == EBADMSG || rc == EEXIST || rc == EFBIG;
}

bool checkpoint_is_unknown(uint64_t id) { return is_for_key(id); }

checkpoint_service &the_checkpoint_service() {
  static immortal<checkpoint_service> instance;
  return *instance;
}

const checkpoint_service::table *checkpoint_service::table_of(uint64_t handle) const {
  const auto found = tables_.find(handle);
  return found == tables_.end() ? nullptr : &found->second;
}

// A table registered once more keeps its handle.
cerrno checkpoint_service::add_table(uint32_t kind, uint32_t version, bool persistent,
                                     uint64_t &handle, bool &found) {
  if (!owner_) return EINVAL;
  auto known = std::find_if(tables_.begin(), tables_.end(),
                            [&](const auto &entry) { return entry.second.kind == kind; });
  if (known == tables_.end()) {
    table added = {kind, version, persistent, false};
    if (store_ != nullptr) {
      std::vector<lost_record> lost;
      cerrno rc = store_->add_table(kind, version, persistent, added.found, lost);
      if (rc == 0) rc = store_->clear_table(kind, persistent);
      if (rc != 0) go_without(rc, store_->failure_text());
      tell_of_lost(lost);
    }
    known = tables_.emplace(++last_handle_, added).first;
  } else if (known->second.version != version) {
    return EEXIST;
  }
  now_.restart = now_.restart || known->second.found;
  handle = known->first;
  found = known->second.found;
  return 0;
}

// When it cannot be found out whether there is a record, the id is one for the key. One that was
// deleted is not there for anybody who asks.
cerrno checkpoint_service::map_key(const table &t, uint32_t key, uint64_t &id) {
  if (const record_key record = {t.kind, key}; has(record_trouble::undeleted, record)) {
    finish_deletion(record);
    return ENOENT;
  }
  uint64_t found = 0;
  const cerrno rc = store_ == nullptr ? code_ : count(store_->find(t.kind, key, found));
  if (rc == ENOENT && store_ != nullptr) return ENOENT;
  id = rc == 0 ? found : id_for(key);
  return 0;
}

cerrno checkpoint_service::create(const table &t, uint32_t key, uint64_t &id) {
  renew_log();
  cerrno rc = finish_deletion({t.kind, key});
  if (rc == 0) rc = store_ == nullptr ? code_ : store_->create(t.kind, key, id);
  return count_write(rc);
}

// The record of an id, and the id that the store has for it. Returns 0, 2, or the store's code.
cerrno checkpoint_service::find(const table &t, uint64_t id, record_key &record, uint64_t &real) {
  record.kind = t.kind;
  real = id;
  if (is_for_key(id)) {
    record.key = static_cast<uint32_t>(id);
    return store_ == nullptr ? code_ : store_->find(t.kind, record.key, real);
  }
  return store_ == nullptr ? code_ : store_->key_of(t.kind, id, record.key);
}

cerrno checkpoint_service::load(const table &t, uint64_t id, std::span<std::byte> buffer) {
  record_key record;
  uint64_t real = 0;
  cerrno rc = find(t, id, record, real);
  if (rc == 0) rc = store_->load(t.kind, real, t.version, buffer);
  if (rc == 0 || is_about_record(rc)) {
    mend(record_trouble::unread, record);
  } else {
    trouble(record_trouble::unread, record, unread_reason);
  }
  return count(rc);
}

// One that was deleted counts as gone. What goes with a file that was moved away is not saved.
checkpoint_look checkpoint_service::look(const table &t, uint32_t key,
                                         std::span<std::byte> buffer) {
  if (store_ == nullptr) return {false, false, now_.reason};
  if (has(record_trouble::undeleted, {t.kind, key})) return {true, false, {}};
  uint64_t id = 0;
  cerrno rc = store_->look_for_files();
  if (rc == 0) rc = store_->find(t.kind, key, id);
  if (rc == 0) rc = store_->load(t.kind, id, t.version, buffer);
  if (rc == 0) return {true, true, {}};
  if (rc == ENOENT || rc == ENODATA) return {true, false, {}};
  return {false, false,
          rc == EBADMSG ? "the record is damaged, or another version's" : store_->failure_text()};
}

// A record that the caller asked for and did not get is not saved over: it would take the settings
// along that the caller does not know.
cerrno checkpoint_service::save(const table &t, uint64_t id, std::span<const std::byte> data) {
  renew_log();
  record_key record;
  uint64_t real = 0;
  cerrno rc = is_for_key(id) ? finish_deletion({t.kind, static_cast<uint32_t>(id)}) : 0;
  if (rc == 0) rc = find(t, id, record, real);
  const bool is_held = store_ != nullptr && has(record_trouble::unread, record);
  if (rc == 0 && is_held) {
    trouble(record_trouble::unsaved, record, unread_reason);
    return count(EEXIST);
  }
  if (rc == ENOENT && is_for_key(id) && store_ != nullptr) {
    rc = store_->create(t.kind, record.key, real);
  }
  if (rc == 0) rc = store_->save(t.kind, real, t.version, data);
  if (rc == 0) {
    for (const auto what : {record_trouble::lost, record_trouble::unread, record_trouble::unsaved})
      mend(what, record);
  } else if (rc != ENOENT) {
    trouble(record_trouble::unsaved, record,
            store_ == nullptr ? now_.reason : store_->failure_text());
  }
  return count_write(rc);
}

cerrno checkpoint_service::start_walk(uint64_t table_handle, uint64_t &handle) {
  if (store_ == nullptr) return code_;
  iterators_.emplace(++last_handle_, iterator{table_handle, 0});
  handle = last_handle_;
  return 0;
}

// Steps over an entry also when it is refused, so the walk can go on behind it.
cerrno checkpoint_service::next(uint64_t handle, uint64_t &id, std::span<std::byte> buffer) {
  const auto found = iterators_.find(handle);
  if (found == iterators_.end()) return EINVAL;
  if (store_ == nullptr) return code_;
  iterator &at = found->second;
  const table &t = *table_of(at.table);
  uint64_t next_id = 0;
  if (const cerrno rc = count(store_->next(t.kind, at.last_id, next_id)); rc != 0) return rc;
  if (next_id != 0) {
    at.last_id = next_id;
    if (const cerrno rc = count(store_->load(t.kind, next_id, t.version, buffer)); rc != 0) {
      return rc;
    }
  }
  id = next_id;
  return 0;
}

cerrno checkpoint_service::end_walk(uint64_t handle) {
  return iterators_.erase(handle) == 1 ? 0 : EINVAL;
}

void checkpoint_service::trouble(record_trouble what, const record_key &record,
                                 const std::string &reason) {
  troubles_[{record, what}] = reason;
}

cerrno checkpoint_service::count_write(cerrno rc) {
  if (rc == 0) {
    ++now_.writes;
    now_.entries = store_->entries();
  }
  if (store_ != nullptr) judge_writing(rc);
  return count(rc);
}

// An entry that is not there is an answer, not a failure.
cerrno checkpoint_service::count(cerrno rc) {
  if (rc == 0 || rc == ENOENT) return rc;
  ++now_.failures;
  const bool is_answer = rc == EBADMSG || rc == ENODATA || rc == EEXIST;
  now_.last_failure = store_ == nullptr ? now_.reason
                      : is_answer       ? cerr_strerror(rc)
                                        : store_->failure_text();
  return rc;
}

}  // namespace lum_linux
