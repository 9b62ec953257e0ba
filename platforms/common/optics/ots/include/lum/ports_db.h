/** @file
 * The ports database: its nodes, and how they come and go.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_PORTS_DB_H
#define LUM_PORTS_DB_H

#include <pthread.h>
#include <stdint.h>

#include "cerr.h"
#include "event_manager.h"
#include "lum/layout.h"
#include "lum/ports.h"
#include "wavl.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_ports_db Ports database
 * One node for each port, found by rsip and by port handle. A node or port data block handed out
 * stays valid only while its port exists.
 * @{ */

/** Node of the ports database. */
typedef struct lum_port_node_info {
  wavl_link links[2];   /**< The tree's links: by rsip, by port_handle. */
  uint32_t rsip;        /**< Key of index 0. */
  uint32_t port_handle; /**< Key of index 1; 0 until lum_ports_db_update_entry(). */
  lum_port_data data;   /**< The port's data block. */
} lum_port_node_info;
LUM_ASSERT_LAYOUT(offsetof(lum_port_node_info, rsip) == 2 * sizeof(wavl_link));

/** Header of the ports database. */
typedef struct lum_ports_db {
  wavl_tree tree;             /**< The nodes: index 0 by rsip, index 1 by port handle. */
  pthread_mutex_t mutex;      /**< Guards changes of the tree, and the look-up by rsip. */
  uint32_t rsip_count;        /**< Nodes put into index 0. */
  uint32_t port_handle_count; /**< Nodes put into index 1; may wrap below zero, only printed. */
} lum_ports_db;

/** The ports database. Walk it with lum_ports_db_walk_via_rsip(): a client's own walk over the tree
 * may stand on a node that is being freed. */
extern lum_ports_db lum_platform;

/** Initialiser of the "PD Data Module": clears and starts the ports database. A database that
 * cannot be started ends the process. During start-up only.
 * @param evm  Ignored.
 * @param restart  Ignored.
 * @return 0 or 22. */
cerrno lum_platform_data_init(event_manager evm, uint32_t restart);

/** Sets the tree up. Called during start-up.
 * @return The result of wavl_init(). */
cerrno lum_ports_db_init(void);

/** Adds a node. Takes the database mutex.
 * @param rsip  The port.
 * @param data  Copied into the node.
 * @return 0, 11 when the database is not running, 12, 14 when the rsip is there already, or a mutex
 *   code. */
cerrno lum_ports_db_add_entry(uint32_t rsip, const lum_port_data *data);

/** Gives a node its port handle. A handle that another node has, and a second update of the same
 * node, drop this node from the database and return 0. Takes the database mutex.
 * @param rsip  The port.
 * @param port_handle  Its handle.
 * @return 0, 14 when the rsip is unknown, or a mutex code: the node then stays, with its handle set
 *   but not to be found by it. */
cerrno lum_ports_db_update_entry(uint32_t rsip, uint32_t port_handle);

/** Removes a node. Its memory lives on until no thread of the library can still look at it. Takes
 * the database mutex.
 * @param rsip  The port.
 * @return 0, 2 when the rsip is unknown, 14 when the tree does not have the node any more, or a
 *   mutex code. */
cerrno lum_ports_db_remove_entry(uint32_t rsip);

/** Looks a port up. Takes the database mutex.
 * @param rsip  The port.
 * @return Its node, or null. */
lum_port_node_info *lum_ports_db_find_entry(uint32_t rsip);

/** Looks a port up. Takes the database mutex.
 * @param rsip  The port.
 * @return Its node, or null. */
lum_port_node_info *lum_get_port_node_from_rsip(uint32_t rsip);

/** Looks a port up by its handle.
 * @param port_handle  The handle.
 * @return Its node, or null. */
lum_port_node_info *lum_get_port_node_from_port_handle(uint32_t port_handle);

/** Calls a function with every node in rsip order until it returns non-zero. Nodes may come and go
 * meanwhile; a node's memory lives on while the function runs. Waits for the function.
 * @param callback  Gets each node and `context`; called without a lock.
 * @param context  Handed on; may be null.
 * @return Always 0. */
cerrno lum_ports_db_walk_via_rsip(wavl_callback callback, void *context);

/** Adds a node for each listed port. Takes the database mutex.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param count  Ports; 0 adds none.
 * @param ports  `count` port numbers, 0 to 255.
 * @return 0, 22, or the first failure's code (lum_ports_db_add_entry()), the ports before it
 * staying in the database. */
cerrno lum_platform_ctx_init(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                             const uint32_t *ports);

/** Removes a port's node when neither of its controllers exists any more. Takes the database mutex.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param port  0 to 255.
 * @return 0, also when there is nothing to remove, or the code of lum_ports_db_remove_entry(). */
cerrno lum_platform_ports_deinit(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t port);

/** Adds ports to the database and gives them their handles and mutexes. Called by
 * lum_create_ports().
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param count  Ports; 0 adds none.
 * @param ports  `count` port numbers, 0 to 255.
 * @param port_handles  `count` handles, in the order of `ports`.
 * @return The result of lum_platform_ctx_init(); the ports it has not entered are not there, those
 *   that were there before get their handles all the same. */
cerrno lum_add_device_to_ports_db(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                                  const uint32_t *ports, const uint32_t *port_handles);

/** Removes the nodes of the first entries of an instance in the slot table.
 * @param rack  0 to 255.
 * @param slot  0 to 15.
 * @param instance  0 to 3.
 * @param count  Entries, from the first. */
void lum_del_device_from_ports_db(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
