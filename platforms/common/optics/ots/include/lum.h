/** @file
 * liblum: manages the OTS ports of one node of an optical line system. Includes every header of
 * `lum/`, one for each subject. */

/** @mainpage liblum
 * A driver process fills in lum_infra_params with its table of callbacks, calls lum_lib_init() and
 * lum_infra_init() once, then lum_plat_init() and lum_create_ports() for each slot. From then on
 * the library polls the modules, drives the LEDs and answers the calls described here. The driver
 * tells it of modules that come and go (lum_update_vendor_info()) and has it hand readings and
 * alarms on (lum_update_pm_ptah_data()); `docs/driver.md` lists all that a driver has to do.
 *
 * The calls are grouped by subject, a header of `lum/` for each; @ref lum_conventions holds for all
 * of them. The services that a platform provides to the library are described at their own headers.
 */

/** @page lum_conventions What holds for every call
 * Unless its comment says otherwise:
 * - The result is a cerrno: 0 is success, 12 out of memory, 22 a bad argument or an unknown port.
 * - No pointer may be null where the comment does not say what becomes of it. Memory is read or
 *   written during the call only and stays the caller's.
 * - Any thread may call. Locks held for a moment only are not named: the database mutex where a
 *   port is looked up, those of the slot table and of the configuration.
 * - "Waits for" names what the call may wait for: the bus (a module transfer, at worst five
 *   attempts 30 ms apart), a callback other than a transfer, the disk (one checkpoint write) or a
 *   lock. Without it the call waits for nothing.
 * - rack, slot, instance and port are 0 to 255; slot-table calls know slots 0 to 15 and instances
 *   0 to 3, and treat any other as unused. A sub-port is 0 or 1.
 * - An rsip is `rack << 24 | slot << 16 | instance << 8 | port`. An interface handle (`ifhandle`)
 *   is the interface manager's number of one controller, a port handle the client's of one port;
 *   of both 0 is none.
 * - Traces go to the channels ::ct_err, ::ct_info and ::ct_debug. */
#ifndef LUM_H
#define LUM_H

#include "lum/callbacks.h"
#include "lum/checkpoints.h"
#include "lum/completions.h"
#include "lum/configuration.h"
#include "lum/constants.h"
#include "lum/context.h"
#include "lum/controllers.h"
#include "lum/hardware_info.h"
#include "lum/leds.h"
#include "lum/lifecycle.h"
#include "lum/lookups.h"
#include "lum/modules.h"
#include "lum/monitoring.h"
#include "lum/names.h"
#include "lum/port_records.h"
#include "lum/ports.h"
#include "lum/ports_db.h"
#include "lum/provisioning.h"
#include "lum/slots.h"
#include "lum/traces.h"

#endif
