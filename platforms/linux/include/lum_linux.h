/* The Linux platform for drivers written in C: started from a node description, it gives liblum its
 * services and callbacks and tells what the node consists of.
 *
 * A driver calls, in this order: lum_linux_start, lum_lib_init, lum_infra_init with
 * lum_linux_event_manager and lum_linux_callbacks, and for each index below lum_linux_slot_count
 * lum_plat_init and lum_create_ports with what lum_linux_slot gives. lum_linux_wait_created waits
 * until the controllers exist. examples/minimal_driver.c is such a driver.
 *
 * What holds for every call, unless its comment says otherwise:
 * - The result is 0 for success or a POSIX error number.
 * - Any thread may call; the call waits for nothing and never calls the driver back.
 * - Memory handed out belongs to the platform, is constant, and stays valid until lum_linux_stop.
 */
#ifndef LUM_LINUX_H
#define LUM_LINUX_H

#include <stddef.h>
#include <stdint.h>

#include "lum.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads the node description at `node_file` and starts everything it describes: the folders, the
 * traces, the checkpoint store, the event manager, the interface manager, the modules and the LEDs.
 * Nothing starts when the description is wrong. On failure every problem found is written to
 * `error`, one "file:line: what is wrong, and what was expected" a line, cut to `error_size` bytes
 * with the NUL; `error` may be null when `error_size` is 0. Returns 0; 22 for a null file or a
 * wrong node description; 16 when the platform runs already; 5 when something could not be started,
 * such as a simulated module whose description is wrong; 12. Waits for the disk. */
int lum_linux_start(const char *node_file, char *error, size_t error_size);

/* Returns the callback table for lum_infra_params; never null and valid for ever. While the
 * platform is not running its callbacks answer 19 and touch nothing. */
const lum_platform_cbs *lum_linux_callbacks(void);

/* Returns the event manager for lum_infra_params, 0 while the platform is not running. */
event_manager lum_linux_event_manager(void);

/* Returns the node's name, "" while the platform is not running. */
const char *lum_linux_node_name(void);

/* One instance of a slot, ready for lum_plat_init(rack, slot, instance, &props) and, when it has
 * ports, lum_create_ports(port_count, ports). */
typedef struct lum_linux_slot_info {
  uint32_t rack;
  uint32_t slot;
  uint32_t instance;
  lum_slot_props props;
  uint32_t port_count;         /* 0 to 256 */
  const lum_port_props *ports; /* port_count entries */
} lum_linux_slot_info;

/* Returns how many slot instances the node has, 0 while the platform is not running. */
uint32_t lum_linux_slot_count(void);

/* Copies what is known of slot instance `index` (0 to lum_linux_slot_count - 1) to `*info`. Returns
 * 0; 22 for a null pointer or an index out of range, `*info` then being untouched. */
int lum_linux_slot(uint32_t index, lum_linux_slot_info *info);

/* Returns the name that the description gives to a port, or null for a port it does not have. */
const char *lum_linux_port_name(uint32_t rsip);

/* Waits until the library has told of at least `count` controllers created and not deleted, two a
 * port. Waits up to `timeout_ms` milliseconds. Returns 0, 110 when that passed before, or 19 when
 * the platform is not running. Not to be called on the interface manager's thread. */
int lum_linux_wait_created(uint32_t count, uint32_t timeout_ms);

/* Sets what fw_upgrade_status answers for a port: 0 as at the start, any other value for an upgrade
 * in progress. Returns 0, 22 for a port the node does not have, or 19. */
int lum_linux_set_fw_upgrade(uint32_t rsip, uint32_t status);

/* Stops the platform: no completion and no event handler runs after it. The library's own threads
 * go on, and their callbacks answer 19. Waits up to about five seconds for what is running. Returns
 * 0; 19 when the platform is not running; 110 when a thread had to be left behind. Must not be
 * called while another thread uses memory handed out, and not on a thread of the platform. */
int lum_linux_stop(void);

#ifdef __cplusplus
}
#endif
#endif
