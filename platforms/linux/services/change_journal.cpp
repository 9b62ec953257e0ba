#include "services/change_journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <span>
#include <vector>

#include "services/store_files.h"

namespace lum_linux {
namespace {

namespace fs = std::filesystem;

// One place of the file. The first says whose the journal is, with whether it is closed as number.
struct place_record {
  uint64_t store;
  uint64_t number;
  uint32_t kind;
  uint32_t key;
  uint32_t what;
  uint32_t checksum;  // of all before it
};
static_assert(sizeof(place_record) == 32);

constexpr uint32_t saved = 0x53415645;
constexpr uint32_t deleted = 0x44454c45;
constexpr uint32_t header = 0x4c554d4a;
constexpr uint64_t in_use = 1;
constexpr uint64_t closed = 2;

// Waits for nobody who would have to take the other end of a pipe.
constexpr int at_once = O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC;

uint32_t checksum_of(const place_record &place) {
  return record_checksum({place.kind, place.key}, place.what, place.number,
                         std::as_bytes(std::span(&place.store, 1)));
}

place_record make_place(uint64_t store, const store_change &change, uint32_t what) {
  place_record place = {store, change.number, change.record.kind, change.record.key, what, 0};
  place.checksum = checksum_of(place);
  return place;
}

using place_list = std::vector<place_record>;

// All places that can be read; one that was torn or never used has another checksum.
place_list read_places(const fs::path &file) {
  place_list all(change_journal::places + 1);
  const unique_fd fd(::open(file.c_str(), O_RDONLY | at_once));
  const ssize_t got = fd ? pread(fd.get(), all.data(), all.size() * sizeof(place_record), 0) : -1;
  all.resize(got < 0 ? 0 : static_cast<size_t>(got) / sizeof(place_record));
  return all;
}

// Returns 0 or the system's error.
int write_all(int fd, const place_list &all) {
  const size_t size = all.size() * sizeof(place_record);
  errno = 0;
  if (pwrite(fd, all.data(), size, 0) == static_cast<ssize_t>(size)) return 0;
  return errno != 0 ? errno : ENOSPC;
}

// A new file under the name, whole or not at all. Returns 0 or the system's error.
int make_file(const fs::path &file, uint64_t store) {
  const fs::path draft = file.string() + ".new";
  {
    ::unlink(draft.c_str());
    const unique_fd fd(::open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | at_once, 0600));
    if (!fd) return errno;
    place_list all(change_journal::places + 1);
    all[0] = make_place(store, {in_use, {}, false}, header);
    int error = write_all(fd.get(), all);
    if (error == 0 && fsync(fd.get()) != 0) error = errno;
    if (error != 0) {
      ::unlink(draft.c_str());
      return error;
    }
  }
  if (::rename(draft.c_str(), file.c_str()) != 0) return errno;
  sync_folder(file.parent_path());
  return 0;
}

}  // namespace

fs::path journal_of(const fs::path &store_file) { return store_file.string() + "-changes"; }

journal_contents change_journal::read(const fs::path &file) {
  const place_list all = read_places(file);
  journal_contents found;
  if (all.empty() || all[0].what != header || all[0].checksum != checksum_of(all[0])) return found;
  found.found = true;
  found.store = all[0].store;
  found.closed = all[0].number == closed;
  for (size_t place = 1; place < all.size(); ++place) {
    const place_record &at = all[place];
    if (at.checksum != checksum_of(at) || at.store != found.store) continue;
    if (at.what != saved && at.what != deleted) continue;
    if (at.number > found.last) {
      found.last = at.number;
      found.last_place = place;
    }
    const record_key record = {at.kind, at.key};
    store_change &latest = found.latest[record];
    if (at.number <= latest.number) continue;
    latest = {at.number, record, at.what == deleted};
    found.places[record] = place;
  }
  return found;
}

int change_journal::open(const fs::path &file, uint64_t store, const journal_contents &found) {
  const bool goes_on = found.found && found.store == store;
  if (!goes_on) {
    if (const int error = make_file(file, store); error != 0) return error;
  }
  file_ = unique_fd(::open(file.c_str(), O_WRONLY | O_DSYNC | at_once));
  if (!file_) return errno;
  store_ = store;
  last_place_ = goes_on ? found.last_place : 0;
  places_ = goes_on ? found.places : decltype(places_)();
  return write(0, {in_use, {}, false}, header);
}

int change_journal::note(const store_change &change) {
  const size_t place = next_place();
  const int error = write(place, change, change.deleted ? deleted : saved);
  if (error != 0) return error;
  last_place_ = place;
  places_[change.record] = place;
  return 0;
}

void change_journal::keep(const record_key &record) {
  if (const auto at = places_.find(record); at != places_.end()) kept_[record] = at->second;
}

void change_journal::release(const record_key &record) { kept_.erase(record); }

void change_journal::close() {
  if (file_) write(0, {closed, {}, false}, header);
  file_ = unique_fd();
}

int change_journal::write(size_t place, const store_change &change, uint32_t what) {
  if (!file_) return EBADF;
  const place_record record = make_place(store_, change, what);
  errno = 0;
  const ssize_t wrote =
      pwrite(file_.get(), &record, sizeof record, static_cast<off_t>(place * sizeof record));
  if (wrote == static_cast<ssize_t>(sizeof record)) return 0;
  return errno != 0 ? errno : ENOSPC;
}

// The one after the last that is not kept; there are far fewer records than places.
size_t change_journal::next_place() const {
  size_t place = last_place_;
  for (size_t tried = 0; tried < places; ++tried) {
    place = place % places + 1;
    const bool is_kept = std::any_of(kept_.begin(), kept_.end(),
                                     [&](const auto &one) { return one.second == place; });
    if (!is_kept) break;
  }
  return place;
}

}  // namespace lum_linux
