// How the platform's owner starts, steers and looks at the services behind the service headers.
// What the services offer to the library stands in those headers; nothing here is called by it.
//
// Unless said otherwise every call may come from any thread, waits for nothing but a short lock,
// and never throws for bad input. Results of type cerrno are 0 or a POSIX error number.
#pragma once

#include "lum_linux/checkpoints.h"
#include "lum_linux/create_replies.h"
#include "lum_linux/entity_agent.h"
#include "lum_linux/events.h"
#include "lum_linux/names.h"
#include "lum_linux/system.h"
#include "lum_linux/test_events.h"
#include "lum_linux/traces.h"
