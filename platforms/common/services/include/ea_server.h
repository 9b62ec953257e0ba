/* Entity-agent service: hands batches of interface operations to a registered server. A platform
 * may do without it; liblum then simply stays unregistered. */
#ifndef EA_SERVER_H
#define EA_SERVER_H

#include <stdint.h>

#include "cerr.h"
#include "event_manager.h"

#ifdef __cplusplus
extern "C" {
#endif

#define EA_SERVER_NAME_SIZE 64

/* Request: a u32 count at byte 8, from byte 16 that many entries. */
#define EA_REQUEST_COUNT 8
#define EA_REQUEST_ENTRIES 16
#define EA_REQUEST_ENTRY_SIZE 1240
#define EA_REQUEST_ENTRY_IFNAME 0       /* char[64] */
#define EA_REQUEST_ENTRY_IFHANDLE 64    /* u32 */
#define EA_REQUEST_ENTRY_ADMIN 76       /* u8 */
#define EA_REQUEST_ENTRY_STATE_READY 77 /* u8 */

/* Reply: from byte 16 one entry per request entry; its first byte becomes 1. */
#define EA_REPLY_ENTRIES 16
#define EA_REPLY_ENTRY_SIZE 3456

/* Serves one batch. `operation` is 0 end of resync, 1 create, 2 update, 3 get-info, 4 delete. Both
 * records are the service's and valid during the call, on whatever thread the service calls from.
 */
typedef void (*ea_server_dispatch)(uint32_t operation, const void *request, void *reply);

/* Called when an entity agent connects, on any thread. Returns 0. */
typedef cerrno (*ea_server_connect)(void);

typedef struct ea_server_registration {
  event_manager manager;
  char name[EA_SERVER_NAME_SIZE];
  ea_server_dispatch dispatch;
  ea_server_connect connect;
  int32_t restart;
} ea_server_registration;

/* Optional. Registers the server; the record is copied. Returns 0 or a code, which liblum ignores:
 * it then stays unregistered. Called once, during start-up, on the client's thread; waits for
 * nothing and must not call back before it returns. Being weak, it is not reason enough for a
 * linker to take it out of a static archive: link it as an object, or with --whole-archive. */
cerrno ea_server_register(const ea_server_registration *registration) __attribute__((weak));

#ifdef __cplusplus
}
#endif
#endif
