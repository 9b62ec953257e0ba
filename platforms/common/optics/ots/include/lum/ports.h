/** @file
 * A port's data block. */
#ifndef LUM_PORTS_H
#define LUM_PORTS_H

#include <pthread.h>
#include <stdint.h>

#include "lum/layout.h"
#include "lum/port_records.h"

/** @defgroup lum_ports Port data
 * Everything known about one port.
 * @{ */

#define LUM_MODULE_FLAGS 8 /**< Flag bytes of the lower page that a poll keeps. */

/** The lower-page bytes whose flags a poll keeps, in the order of lum_port_data.module_flags. */
#define LUM_MODULE_FLAG_PLACES \
  { 9, 10, 11, 12, 13, 64, 70, 49 }

/** Everything known about one port: the optics data block. Words and bytes that several threads
 * share are single words to the reader; a reader may see the old or the new one. */
typedef struct lum_port_data {
  uint32_t rack;                 /**< 0 to 255. */
  uint32_t slot;                 /**< 0 to 255. */
  uint32_t instance;             /**< 0 to 255. */
  uint32_t zero;                 /**< Not used, 0. */
  uint32_t port;                 /**< 0 to 255. */
  uint32_t provisioning_needed;  /**< Non-zero: the provisioning handler visits the port. */
  uint32_t force_reprovisioning; /**< Kept for the client. */
  uint32_t state_word;           /**< Not used. */
  uint32_t led_state;            /**< Last LED state asked for. */
  lum_sub_port_intf sub_port[LUM_SUB_PORTS]; /**< Each sub-port's controller interface. */
  lum_device_id_td device_id[LUM_SUB_PORTS]; /**< Each sub-port's device id. */
  lum_vendor_info vendor;                    /**< What the module says about itself. */
  lum_dom_area dom[LUM_SUB_PORTS];           /**< Each sub-port's polled values: the status area. */
  uint8_t reserved_1[64];                    /**< Not used, 0. */
  lum_port_cfg port_cfg[LUM_SUB_PORTS];      /**< Each sub-port's configuration. */
  int16_t module_temperature;                /**< Polled; 1/256 degree Celsius. */
  uint16_t module_word_16;                   /**< Polled supply voltage; 100 microvolt. */
  uint8_t module_flags[LUM_MODULE_FLAGS];    /**< Polled bytes at #LUM_MODULE_FLAG_PLACES. */
  uint8_t reserved_2[12];                    /**< Not used, 0. */
  lum_test_injection test[LUM_SUB_PORTS];    /**< What tests add to each sub-port. */
  uint8_t reserved_3[4];                     /**< Not used, 0. */
  /** 1: the module has been told removed, or the port is being deleted; no transfers. */
  uint8_t transceiver_disabled;
  /** 1 from each creation of the controllers, whatever is in the cage, to
   * `lum_update_vendor_info(rsip, 0)`. */
  uint32_t inserted;
  uint32_t new_memmap;    /**< 1: the module uses the newer memory map. */
  lum_chkpt_record chkpt; /**< Live checkpoint state. */
  uint8_t is_dom_enabled; /**< 1 from the moment both controllers exist to a deletion: polled. */
  /** Held while polling and provisioning the module, and from a deletion until the port goes by the
   * deletion's thread: a client that takes it tries only, for it may never be free again.
   * Error-checking. */
  pthread_mutex_t port_mutex;
  /** The number that the library has given to the thread of the deletion which keeps the mutex, and
   * gives to no other; 0 none, all ones while the mutex is made anew. */
  uint64_t mutex_kept_by;
  uint16_t mutex_visitors; /**< Threads at the mutex; the library's own. */
  uint16_t mutex_waiters;  /**< Threads asleep at the mutex, or about to be; the library's own. */
  uint8_t removed;         /**< 1: the port has left the database; the library's own. */
  uint8_t deletion_asked;  /**< 1 from lum_delete_ports() until the port goes or is made again. */
} lum_port_data;
LUM_ASSERT_LAYOUT(offsetof(lum_port_data, led_state) == 32);
LUM_ASSERT_LAYOUT(offsetof(lum_port_data, dom) ==
                  offsetof(lum_port_data, vendor) + sizeof(lum_vendor_info));
LUM_ASSERT_LAYOUT(offsetof(lum_port_data, port_cfg) >
                  offsetof(lum_port_data, dom) + LUM_STATUS_AREA_SIZE);
LUM_ASSERT_LAYOUT(offsetof(lum_port_data, chkpt) ==
                  offsetof(lum_port_data, new_memmap) + sizeof(uint32_t));
LUM_ASSERT_LAYOUT(offsetof(lum_port_data, is_dom_enabled) ==
                  offsetof(lum_port_data, chkpt) + sizeof(lum_chkpt_record));

/** @} */

#endif
