/** @file
 * The Linux platform for drivers written in C: started from a node description, it gives liblum its
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
 * - Memory handed out belongs to the platform, is constant, and stays valid until
 *   lum_linux_stop. */
#ifndef LUM_LINUX_H
#define LUM_LINUX_H

#include <stddef.h>
#include <stdint.h>

#include "lum.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Reads a node description and starts everything it describes: the folders, the traces, the
 * checkpoint store, the event manager, the interface manager, the modules and the LEDs. Nothing
 * starts when the description is wrong. Waits for the disk.
 * @param node_file  The description's path.
 * @param error  Gets on failure every problem found, one "file:line: what is wrong, and what was
 *   expected" a line; may be null when `error_size` is 0.
 * @param error_size  Bytes, to which it is cut with the NUL.
 * @return 0; 22 for a null file or a wrong node description; 16 when the platform runs already; 5
 *   when something could not be started, such as a simulated module whose description is wrong;
 *   12. */
int lum_linux_start(const char *node_file, char *error, size_t error_size);

/** Gives the callback table for lum_infra_params. While the platform is not running its callbacks
 * answer 19 and touch nothing.
 * @return The table; never null and valid for ever. */
const lum_platform_cbs *lum_linux_callbacks(void);

/** Gives the event manager for lum_infra_params.
 * @return It, or 0 while the platform is not running. */
event_manager lum_linux_event_manager(void);

/** Gives the node's name.
 * @return It, or "" while the platform is not running. */
const char *lum_linux_node_name(void);

/** One instance of a slot, ready for lum_plat_init(rack, slot, instance, &props) and, when it has
 * ports, lum_create_ports(port_count, ports). */
typedef struct lum_linux_slot_info {
  uint32_t rack;               /**< 0 to 255 */
  uint32_t slot;               /**< 0 to 15 */
  uint32_t instance;           /**< 0 to 3 */
  lum_slot_props props;        /**< in use, and for how many ports */
  uint32_t port_count;         /**< 0 to 256 */
  const lum_port_props *ports; /**< port_count entries */
} lum_linux_slot_info;

/** Counts the node's slot instances.
 * @return Their number, 0 while the platform is not running. */
uint32_t lum_linux_slot_count(void);

/** Tells of a slot instance.
 * @param index  0 to lum_linux_slot_count - 1.
 * @param info  Gets what is known of it; untouched on failure.
 * @return 0; 22 for a null pointer or an index out of range. */
int lum_linux_slot(uint32_t index, lum_linux_slot_info *info);

/** Gives the name that the description has for a port.
 * @param rsip  The port's.
 * @return The name, or null for a port that the description does not have. */
const char *lum_linux_port_name(uint32_t rsip);

/** Waits until the library has told of enough controllers created and not deleted. Not to be called
 * on the interface manager's thread.
 * @param count  Controllers, two a port.
 * @param timeout_ms  Milliseconds to wait at most.
 * @return 0, 110 when the time passed before, or 19 when the platform is not running. */
int lum_linux_wait_created(uint32_t count, uint32_t timeout_ms);

/** Sets what fw_upgrade_status answers for a port.
 * @param rsip  The port's.
 * @param status  0 as at the start, any other value for an upgrade in progress.
 * @return 0, 22 for a port that the node does not have, or 19 while the platform is not running. */
int lum_linux_set_fw_upgrade(uint32_t rsip, uint32_t status);

/** Stops the platform: no completion and no event handler runs after it. The library's own threads
 * go on, and their callbacks answer 19. Waits up to about five seconds for what is running. Must
 * not be called while another thread uses memory handed out, and not on a thread of the platform.
 * @return 0; 19 when the platform is not running; 110 when a thread had to be left behind. */
int lum_linux_stop(void);

#ifdef __cplusplus
}
#endif
#endif
