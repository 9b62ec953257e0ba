/** @file
 * Entity-agent service: hands batches of interface operations to a registered server. A platform
 * may do without it; liblum then simply stays unregistered. */
#ifndef EA_SERVER_H
#define EA_SERVER_H

#include <stdint.h>

#include "cerr.h"
#include "event_manager.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup ea_server Entity-agent service
 * Hands batches of interface operations to a registered server.
 * @{ */

#define EA_SERVER_NAME_SIZE 64 /**< Bytes of a server's name, its NUL included. */

#define EA_REQUEST_COUNT 8              /**< u32 of a request: its entries. */
#define EA_REQUEST_ENTRIES 16           /**< Where the entries of a request begin. */
#define EA_REQUEST_ENTRY_SIZE 1240      /**< Bytes of an entry of a request. */
#define EA_REQUEST_ENTRY_IFNAME 0       /**< char[64] of an entry: its interface name. */
#define EA_REQUEST_ENTRY_IFHANDLE 64    /**< u32 of an entry: its interface handle. */
#define EA_REQUEST_ENTRY_ADMIN 76       /**< u8 of an entry: its administrative state. */
#define EA_REQUEST_ENTRY_STATE_READY 77 /**< u8 of an entry: whether its state is ready. */

#define EA_REPLY_ENTRIES 16      /**< Where the entries of a reply begin, one per request entry. */
#define EA_REPLY_ENTRY_SIZE 3456 /**< Bytes of an entry of a reply; its first byte becomes 1. */

/** Serves one batch, on whatever thread the service calls from.
 * @param operation  0 end of resync, 1 create, 2 update, 3 get-info, 4 delete.
 * @param request  The service's, valid during the call; null is served as a batch without entries.
 * @param[out] reply  The service's, with room for an entry per request entry; null as `request`. */
typedef void (*ea_server_dispatch)(uint32_t operation, const void *request, void *reply);

/** Called when an entity agent connects, on any thread.
 * @return 0. */
typedef cerrno (*ea_server_connect)(void);

/** What a server says about itself. */
typedef struct ea_server_registration {
  event_manager manager;          /**< The client's event manager. */
  char name[EA_SERVER_NAME_SIZE]; /**< NUL-terminated; liblum's is "lum_server". */
  ea_server_dispatch dispatch;    /**< Serves batches; not null. */
  ea_server_connect connect;      /**< Told of agents that connect; not null. */
  int32_t restart;                /**< Non-zero: the process is a restart of an earlier one. */
} ea_server_registration;

/** Optional. Registers the server. Called once, during start-up, on the client's thread; waits for
 * nothing and must not call back before it returns. Being weak, it is not reason enough for a
 * linker to take it out of a static archive: link it as an object, or with `--whole-archive`.
 * @param registration  The server; copied.
 * @return 0 or a code, which liblum ignores: it then stays unregistered. */
cerrno ea_server_register(const ea_server_registration *registration) __attribute__((weak));

/** @} */

#ifdef __cplusplus
}
#endif
#endif
