// A file system for SQLite whose reads fail as a test says; all else is the usual one's.
#pragma once

#include <sqlite3.h>

#include <atomic>
#include <functional>
#include <string>
#include <string_view>

// In force while it lives. `fault` is asked before each read of a file and gives SQLITE_OK or the
// code that the read is to fail with.
class fault_vfs {
 public:
  using fault = std::function<int(std::string_view file, sqlite3_int64 offset)>;

  explicit fault_vfs(fault at_read) : at_read_(std::move(at_read)) {
    usual_ = sqlite3_vfs_find(nullptr);
    vfs_ = *usual_;
    vfs_.szOsFile = static_cast<int>(sizeof(file)) + usual_->szOsFile;
    vfs_.zName = "fault";
    vfs_.pAppData = this;
    vfs_.xOpen = open;
    sqlite3_vfs_register(&vfs_, 1);
  }
  ~fault_vfs() {
    sqlite3_vfs_unregister(&vfs_);
    sqlite3_vfs_register(usual_, 1);
  }
  // From now on files are opened as on a disk that is mounted read-only.
  void set_read_only() { read_only_ = true; }

  // How often a file was synchronised, and how much of the write-ahead log was, the last time.
  uint64_t syncs() const { return syncs_; }
  uint64_t synced_log() const { return static_cast<uint64_t>(synced_log_); }

  fault_vfs(const fault_vfs &) = delete;
  fault_vfs &operator=(const fault_vfs &) = delete;

 private:
  // The usual file stands behind it in memory.
  struct file {
    sqlite3_file base;
    fault_vfs *owner;
    const char *name;
    sqlite3_file *usual() { return reinterpret_cast<sqlite3_file *>(this + 1); }
  };
  static file *of(sqlite3_file *f) { return reinterpret_cast<file *>(f); }
  static sqlite3_file *usual_of(sqlite3_file *f) { return of(f)->usual(); }

  static int open(sqlite3_vfs *vfs, const char *name, sqlite3_file *f, int flags, int *out) {
    auto *self = static_cast<fault_vfs *>(vfs->pAppData);
    file *opened = of(f);
    opened->base.pMethods = nullptr;
    opened->owner = self;
    opened->name = name == nullptr ? "" : name;
    if (self->read_only_) {
      flags = (flags & ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) | SQLITE_OPEN_READONLY;
    }
    // The usual one finds what belongs to it in its own record.
    const int result = self->usual_->xOpen(self->usual_, name, opened->usual(), flags, out);
    if (result == SQLITE_OK) opened->base.pMethods = methods();
    return result;
  }

  static int read(sqlite3_file *f, void *to, int amount, sqlite3_int64 offset) {
    const file &asked = *of(f);
    if (const int code = asked.owner->at_read_(asked.name, offset); code != SQLITE_OK) return code;
    return usual_of(f)->pMethods->xRead(usual_of(f), to, amount, offset);
  }

  static int sync(sqlite3_file *f, int flags) {
    const file &synced = *of(f);
    ++synced.owner->syncs_;
    sqlite3_int64 size = 0;
    usual_of(f)->pMethods->xFileSize(usual_of(f), &size);
    if (std::string_view(synced.name).ends_with("-wal")) synced.owner->synced_log_ = size;
    return usual_of(f)->pMethods->xSync(usual_of(f), flags);
  }

  // Without shared memory, which a store that one process has to itself does not use.
  static const sqlite3_io_methods *methods() {
    static const sqlite3_io_methods all = [] {
      sqlite3_io_methods m = {};
      m.iVersion = 1;
      m.xClose = [](sqlite3_file *f) { return usual_of(f)->pMethods->xClose(usual_of(f)); };
      m.xRead = read;
      m.xWrite = [](sqlite3_file *f, const void *from, int amount, sqlite3_int64 offset) {
        return usual_of(f)->pMethods->xWrite(usual_of(f), from, amount, offset);
      };
      m.xTruncate = [](sqlite3_file *f, sqlite3_int64 size) {
        return usual_of(f)->pMethods->xTruncate(usual_of(f), size);
      };
      m.xSync = sync;
      m.xFileSize = [](sqlite3_file *f, sqlite3_int64 *size) {
        return usual_of(f)->pMethods->xFileSize(usual_of(f), size);
      };
      m.xLock = [](sqlite3_file *f, int lock) {
        return usual_of(f)->pMethods->xLock(usual_of(f), lock);
      };
      m.xUnlock = [](sqlite3_file *f, int lock) {
        return usual_of(f)->pMethods->xUnlock(usual_of(f), lock);
      };
      m.xCheckReservedLock = [](sqlite3_file *f, int *held) {
        return usual_of(f)->pMethods->xCheckReservedLock(usual_of(f), held);
      };
      m.xFileControl = [](sqlite3_file *f, int operation, void *argument) {
        return usual_of(f)->pMethods->xFileControl(usual_of(f), operation, argument);
      };
      m.xSectorSize = [](sqlite3_file *f) {
        return usual_of(f)->pMethods->xSectorSize(usual_of(f));
      };
      m.xDeviceCharacteristics = [](sqlite3_file *f) {
        return usual_of(f)->pMethods->xDeviceCharacteristics(usual_of(f));
      };
      return m;
    }();
    return &all;
  }

  fault at_read_;
  bool read_only_ = false;
  std::atomic<uint64_t> syncs_ = 0;
  std::atomic<sqlite3_int64> synced_log_ = 0;
  sqlite3_vfs *usual_ = nullptr;
  sqlite3_vfs vfs_ = {};
};
