// Which mutexes the library named to the deadlock monitor.
#pragma once

#include <pthread.h>

namespace support {

struct deadlock_marks {
  const pthread_mutex_t *set;
  const pthread_mutex_t *unset;
};

// The mutexes of the latest marks, whatever the thread; null before there is one.
deadlock_marks last_marks();

}  // namespace support
