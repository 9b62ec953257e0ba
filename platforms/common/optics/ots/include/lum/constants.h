/** @file
 * The version, and the sizes and numbers that several subjects share. */
#ifndef LUM_CONSTANTS_H
#define LUM_CONSTANTS_H

#include "lum/layout.h"

/** @defgroup lum_constants Constants
 * The version, and the sizes and numbers that several subjects share.
 * @{ */

#define LUM_VERSION_MAJOR 1 /**< Grows with a change that breaks programs. */
#define LUM_VERSION_MINOR 0 /**< Grows with an addition. */
#define LUM_VERSION_PATCH 0 /**< Grows with a repair. */

#define LUM_SUB_PORTS 2        /**< Controllers of a port, one for each sub-port. */
#define LUM_IFTYPE_OTS 188u    /**< Interface type of an OTS controller. */
#define LUM_IFNAME_SIZE 64     /**< Bytes of an interface name, its NUL included. */
#define LUM_DEVID_NAME_SIZE 65 /**< Bytes of the interface name in a device id. */
#define LUM_MAX_SLOTS 16       /**< Slots of the slot table, 0 to 15. */
#define LUM_MAX_INSTANCES 4    /**< Instances of a slot, 0 to 3. */
LUM_ASSERT_LAYOUT(LUM_DEVID_NAME_SIZE > LUM_IFNAME_SIZE);

#define LUM_NOT_FOUND 0xFFFFFFFFu /**< Result of the simple conversion look-ups. */

/** @} */

#endif
