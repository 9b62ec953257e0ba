// A failing platform call, in a process of its own, and what is to hold afterwards.
#pragma once

#include <functional>
#include <string>

#include "script.h"

namespace failing_platform {

// EBUSY is the one code that the library knows from others: it waits for a mutex that is busy.
struct failing {
  const char *name;
  cerrno code;
  support::script_book::how_long lasts;
};
extern const failing failings[4];

// How a process ended; below 0 by a signal.
enum ending {
  went_well = 0,
  not_met = 1,  // fewer calls are made than the one that was to fail
  lock_held = 2,
  does_not_come_back = 3,
  expectation_broken = 4,
  refuses_again = 5,
};

// What one trial does in its process.
using trial = std::function<ending(unsigned nth)>;

// Of all trials of one way of failing.
struct tally {
  unsigned calls = 0;
  unsigned tried = 0;
  unsigned survived = 0;
  unsigned fatal = 0;  // ended as the headers say of them
};

// Tries the first call, the second and so on until there is none; where a process is dear, one in
// so many, from another first one each day (LUM_ATTACK_START).
void try_each(const std::string &name, const trial &once, tally &all);

// Says what was tried, and expects that all of it survived.
void expect_all_survived(const failing &how, const tally &all, unsigned fewest);

// Fails the nth call of the platform that `operate` and what it leads to make; false when it makes
// fewer.
bool met_while(const std::function<void()> &operate, const failing &how, unsigned nth);

// Ports 7 and 8 can be looked up, deleted and created again, set, provisioned and, where there is a
// polling thread, polled.
bool comes_back();
bool all_locks_are_free();
// Begins the polling thread that a forked process has not; it sleeps.
void begin_polling_anew();

}  // namespace failing_platform
