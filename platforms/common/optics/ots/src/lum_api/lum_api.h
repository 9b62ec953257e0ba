// What the files of this area share.
#pragma once

#include <pthread.h>

namespace lum {

// The polling thread; takes no argument and never returns.
void *dom_thread(void *);

// The lock that brackets the serialised queries; set up by lum_infra_init.
extern pthread_mutex_t serial_mutex;

}  // namespace lum
