// A checkpoint table in memory.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "chkpt.h"
#include "lum.h"
#include "spin.h"

namespace support {

class checkpoint_table {
 public:
  // What a restarted process finds. Returns the record's id.
  uint64_t survive(uint32_t rsip, const lum_chkpt_record &record);
  // The restart indication of chkpt_register.
  uint32_t restart = 0;
  // The length that a chkpt_get which is made to fail leaves behind; by default the caller's.
  std::optional<uint32_t> length_of_failed_get;

  bool has(uint32_t key);
  lum_chkpt_record record(uint32_t key);
  chkpt_appdesc application() const { return application_; }
  chkpt_tbldesc table() const { return table_; }

 private:
  friend struct checkpoint_calls;
  struct entry {
    uint32_t key;
    std::vector<uint8_t> data;
  };

  spin lock_;
  std::map<uint64_t, entry> entries_;
  uint64_t last_id_ = 0x500;
  uint64_t walked_ = 0;
  chkpt_appdesc application_ = {};
  chkpt_tbldesc table_ = {};
};

extern checkpoint_table &checkpoints;

}  // namespace support
