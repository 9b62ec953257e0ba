// The checkpoint store behind chkpt.h: where it is, and how it fares.
//
// What holds for every call stands in lum_linux/services.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "cerr.h"

namespace lum_linux {

// Names the store's file, whose folder is created when it is not there. To be called before
// chkpt_init, which succeeds also when the store cannot be had: nothing is kept then until it can.
// Returns 0, 22 for an empty path, or 16 when the service has been started.
cerrno checkpoints_set_path(const std::filesystem::path &file);

// Closes the store. The path is kept; table and iterator handles are unknown from now on. Waits for
// the disk.
void checkpoints_close();

// What is wrong with a record.
enum class record_trouble {
  lost,  // damaged, or without its latest change, since an earlier process; until it is saved anew
  unread,     // it could not be read when it was asked for; it is kept as it is until it has been
  unsaved,    // the latest save of it failed
  undeleted,  // it was deleted and is still in the store; that is tried again until it is done
};

struct troubled_record {
  record_trouble trouble = record_trouble::lost;
  uint32_t table = 0;  // the kind that it was registered with
  uint32_t key = 0;
  std::string reason;
};

struct checkpoint_status {
  std::filesystem::path file;
  bool open = false;                // its records can be read
  bool usable = false;              // and it takes changes, as far as the latest one tells
  std::string reason;               // why it is not usable; else empty
  bool restart = false;             // the store of an earlier process was found
  std::filesystem::path set_aside;  // what a store that could not be used was renamed to, or empty
  std::string set_aside_reason;
  uint64_t entries = 0;      // in all tables
  uint64_t writes = 0;       // durable changes since the store was opened
  uint64_t failures = 0;     // calls that the store could not carry out since then
  std::string last_failure;  // text of the latest, or empty
  std::vector<troubled_record> troubled;
  // Why changes that are lost would not be noticed by the next process; empty when they would.
  std::string doubt;
};
// Does what is due now and then: opens a store that could not be opened, deletes what could not
// be deleted, and merges the write-ahead log into the database. To be called every few seconds.
// Waits for the disk.
void checkpoints_tend();

// As it was after the latest call. Does not wait for the disk.
checkpoint_status checkpoints_status();

// What the store holds for a key, for whoever shows it.
struct checkpoint_look {
  bool known = false;  // it could be found out
  bool found = false;  // there is a record, and it has been copied
  std::string reason;  // why it is not known; else empty
};
// Copies a record of exactly the buffer's size. `table` is a handle of chkpt_register. Unlike
// chkpt_get it notes nothing: a record that could not be looked at may be saved over as before.
// Waits for the disk.
checkpoint_look checkpoints_look(uint64_t table, uint32_t key, std::span<std::byte> record);

// Whether an id given out by the service stands for a key because it was not known whether that has
// a record.
bool checkpoint_is_unknown(uint64_t id);

}  // namespace lum_linux
