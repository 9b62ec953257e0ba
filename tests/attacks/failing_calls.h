// The calls of the C library that give memory and reach the disk, one of which is made to fail.
#pragma once

#include <cstdint>

namespace attacks {

enum class target : uint32_t { nothing, memory, read, write, sync, open, truncate };
inline constexpr target disk_targets[] = {target::read, target::write, target::sync, target::open,
                                          target::truncate};
const char *name_of(target what);

// What is attacked recovers when that is over, and stops; or is attacked while it stops as well; or
// ends in the middle of it, as a process does that is killed.
enum class ending : uint32_t { recovers, stops, is_killed };
const char *name_of(ending how);

struct attack {
  target what = target::nothing;
  uint64_t nth = 1;  // of the calls from now on
  bool from_then_on = false;
  int error = 0;
  ending how = ending::recovers;
};

// Only files below the folder are attacked; its name is copied.
void attack_files_below(const char *folder);
void begin(const attack &planned);
// Nothing fails any more. Returns how many calls there were of what was attacked.
uint64_t end();

// Blocks of memory that have been given and not been taken back.
int64_t blocks_outstanding();

// Memory does not fail this thread, but while a `struck` lives.
void spare_this_thread();
class struck {
 public:
  struck();
  ~struck();
  struck(const struck &) = delete;
  struck &operator=(const struck &) = delete;
};

}  // namespace attacks
