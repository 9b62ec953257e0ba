// What outlives the process.
#pragma once

#include <cstdint>
#include <vector>

#include "lum_linux/performance.h"
#include "records/event.h"
#include "records/reading_history.h"

namespace lumd {

// What a file holds.
struct kept_record {
  std::vector<event> events;  // the earliest first
  uint64_t next = 1;          // number that no event has had
  std::vector<sample_block> samples;
  std::vector<lum_linux::pm_kept_bin> bins;
};

// What a file is to take in.
struct record_change {
  std::vector<event> events;
  uint64_t next = 1;
  std::vector<sample_block> samples;
  lum_linux::pm_unkept bins;
  bool is_last = false;  // no number has been given out that `next` is not above of

  bool is_empty() const {
    return events.empty() && samples.empty() && bins.bins.empty() && bins.deleted.empty();
  }
};

}  // namespace lumd
