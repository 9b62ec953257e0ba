// Deletions of the checkpoint service's records. One that the store cannot carry out is owed: the
// record counts as deleted, that it is to be deleted is noted in the store's journal, which has its
// place on the disk, and it is tried again until it is done.
#include <cerrno>
#include <vector>

#include "services/checkpoint_service.h"

namespace lum_linux {
namespace {

std::string noted_reason(const std::string &failure) {
  return "it cannot be deleted now (" + failure +
         "); that is noted, and it is deleted as soon as that can be done";
}

std::string unnoted_reason(const std::string &failure) {
  return "it can neither be deleted now nor noted as deleted (" + failure +
         "); unless that is done before the driver ends, its settings come back";
}

}  // namespace

cerrno checkpoint_service::remove(const table &t, uint64_t id) {
  renew_log();
  record_key record;
  uint64_t real = 0;
  cerrno rc = find(t, id, record, real);
  if (rc == 0) {
    rc = do_remove(real, record);
  } else if (rc == ENOENT && checkpoint_is_unknown(id)) {
    forget_troubles(record);
    rc = 0;
  }
  const bool is_known = rc != 0 && rc != ENOENT;
  if (is_known && (store_ == nullptr || store_->has_data(record))) owe_deletion(record);
  return count_write(rc);
}

cerrno checkpoint_service::do_remove(uint64_t id, const record_key &record) {
  const cerrno rc = store_->remove(record.kind, id);
  if (rc == 0) forget_troubles(record);
  return rc;
}

void checkpoint_service::forget_troubles(const record_key &record) {
  std::erase_if(troubles_, [&](const auto &one) { return one.first.first == record; });
}

void checkpoint_service::owe_deletion(const record_key &record) {
  const std::string failure = store_ == nullptr ? now_.reason : store_->failure_text();
  const bool is_noted = store_ != nullptr && store_->note_deletion(record);
  const std::string reason = is_noted ? noted_reason(failure) : unnoted_reason(failure);
  if (!has(record_trouble::undeleted, record)) tell(name_of(record) + ": " + reason);
  trouble(record_trouble::undeleted, record, reason);
}

// Returns 0 when nothing is owed of the record, or not any more.
cerrno checkpoint_service::finish_deletion(const record_key &record) {
  if (!has(record_trouble::undeleted, record)) return 0;
  if (store_ == nullptr) return code_;
  uint64_t id = 0;
  cerrno rc = store_->find(record.kind, record.key, id);
  if (rc == 0) rc = do_remove(id, record);
  if (rc != 0 && rc != ENOENT) {
    owe_deletion(record);
    return count(rc);
  }
  forget_troubles(record);
  now_.entries = store_->entries();
  tell(name_of(record) + " is deleted now");
  return 0;
}

void checkpoint_service::finish_deletions() {
  std::vector<record_key> owed;
  for (const auto &[at, reason] : troubles_) {
    if (at.second == record_trouble::undeleted) owed.push_back(at.first);
  }
  for (const record_key &record : owed) finish_deletion(record);
}

}  // namespace lum_linux
