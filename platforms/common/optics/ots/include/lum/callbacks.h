/** @file
 * The platform's callbacks: the interface manager, the client, the LEDs and the modules. */
#ifndef LUM_CALLBACKS_H
#define LUM_CALLBACKS_H

#include <stdint.h>

#include "cerr.h"
#include "imca.h"
#include "lum/layout.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_callbacks Platform callbacks
 * How the library reaches the interface manager, the client, the LEDs and the modules. Several
 * threads may make the same callback at once. It may look ports up through this interface. It must
 * not call lum_delete_ports(), nor wait for another port's transfer, nor, where a port's mutex may
 * be held, make a call that takes it. It must come back: while the polling thread waits for it, no
 * port is polled. All pointers given are valid during the call only, unless said otherwise.
 * @{ */

#define LUM_IM_CREATE 0x80000004u /**< Operation of a create batch. */
#define LUM_IM_DELETE 0x80000005u /**< Operation of a delete batch. */
#define LUM_IM_UPDATE 0x80000006u /**< Operation of an update batch. */

/** Sends a create or delete batch to the interface manager. Called from the thread that creates,
 * replays or deletes, and from inside a create completion.
 * @param names  `count` names, of which those of empty elements are null; gone when the call
 *   returns and to be copied.
 * @param iftype  #LUM_IFTYPE_OTS.
 * @param payload  `payload_count` elements of #LUM_CREATE_ELEMENT_SIZE or #LUM_DELETE_ELEMENT_SIZE
 *   bytes; gone when the call returns and to be copied.
 * @param payload_count  Elements, equal to `count`.
 * @param operation  #LUM_IM_CREATE or #LUM_IM_DELETE.
 * @param context  Goes to `complete` unchanged.
 * @param count  Controllers of the batch.
 * @param complete  To be called exactly once for an accepted batch and never for a refused one; do
 *   not wait for that here.
 * @return 0 when the batch is accepted; any other code refuses it. */
typedef cerrno (*lum_im_req_by_name_cb)(const char *const *names, uint16_t iftype,
                                        const void *payload, uint32_t payload_count,
                                        uint32_t operation, void *context, uint32_t count,
                                        imca_completion complete);

/** Sends an update batch to the interface manager. Called from the thread that updates.
 * @param ifhandles  `count` interface handles; gone once `complete` is called.
 * @param iftype  #LUM_IFTYPE_OTS.
 * @param payload  `count` elements of #LUM_UPDATE_ELEMENT_SIZE bytes; to be copied.
 * @param payload_size  Bytes of the payload.
 * @param operation  #LUM_IM_UPDATE.
 * @param context  Goes to `complete` unchanged.
 * @param count  Controllers of the batch.
 * @param complete  As of lum_im_req_by_name_cb.
 * @return 0 when the batch is accepted; any other code refuses it. */
typedef cerrno (*lum_im_update_req_by_ifhandle_cb)(const uint32_t *ifhandles, uint32_t iftype,
                                                   const void *payload, uint32_t payload_size,
                                                   uint32_t operation, void *context,
                                                   uint32_t count, imca_completion complete);

/** Tells the client of created or deleted controllers. Not called for a batch with an odd count of
 * creations, an unknown port or an unknown first handle, or without memory. Called on the interface
 * manager's thread.
 * @param operation  1 created, 0 deleted.
 * @param count  Elements of each array.
 * @param rsips  The ports. Of a deletion those found, packed, and zeros behind them: look the
 *   handles up, not the positions.
 * @param sub_ports  0 or 1, in the order of `rsips`.
 * @param ifhandles  The handles: of a creation 0 where the element was skipped as benign, of a
 *   deletion the batch's.
 * @return Ignored. */
typedef cerrno (*lum_ctrl_op_notify_cb)(uint32_t operation, uint32_t count, const uint32_t *rsips,
                                        const uint32_t *sub_ports, const uint32_t *ifhandles);

/** Tells the client of updated controllers. Called on the interface manager's thread.
 * @param count  Elements of the array.
 * @param rsips  The port of each controller, 0 for one that is not known any more.
 * @return Ignored. */
typedef cerrno (*lum_ctrl_update_notify_cb)(uint32_t count, const uint32_t *rsips);

/** Gives the name of an interface that the ports database does not know. Called on the thread of
 * any call that takes an interface handle, and on the interface manager's.
 * @param ifhandle  The interface.
 * @param[out] name  #LUM_DEVID_NAME_SIZE bytes.
 * @return 0; any other code says that the interface is unknown. */
typedef cerrno (*lum_ifname_from_ifh_cb)(uint32_t ifhandle, char *name);

/** Reads a port's LED. Called from the thread that asks.
 * @param rsip  The port.
 * @param zero  Always 0.
 * @param[out] state  A `LUM_LED_` state.
 * @return 0; upon any other code the library answers with the state it asked for last. */
typedef cerrno (*lum_led_get_state_cb)(uint32_t rsip, uint32_t zero, uint32_t *state);

/** Sets a port's LED, each time to #LUM_LED_OFF first and then to another state. Called on the
 * caller's thread, the interface manager's and, with the port's mutex held, the polling thread; for
 * one port by several threads at once, where whoever ends last sets it again as recorded. It must
 * not set the same LED through this interface.
 * @param rsip  The port.
 * @param zero  Always 0.
 * @param state  A `LUM_LED_` state, or whatever was given to lum_optics_led_set_state().
 * @return 0, or a code that lum_optics_led_set_state() hands on; that of #LUM_LED_OFF in front of
 *   another state is ignored. */
typedef cerrno (*lum_led_set_state_cb)(uint32_t rsip, uint32_t zero, uint32_t state);

/** Tells whether a firmware upgrade of a port's module is in progress. Called on the polling
 * thread, for each port in each cycle, by lum_update_pm_ptah_data() and by
 * lum_optics_get_fw_upgrd_status().
 * @param rsip  The port.
 * @param[in,out] status  0 no, any other yes; 0 before the call where the library asks for itself.
 * @return Ignored, but handed on by lum_optics_get_fw_upgrd_status(). */
typedef cerrno (*lum_fw_upgrade_status_cb)(uint32_t rsip, uint32_t *status);

/** Reads one byte of a module's memory. The rack is not given. Called on the polling thread, the
 * caller's and, when a controller is created again, the interface manager's; with the port's mutex
 * held but for identity reads and the visits that follow a failed transfer, so there may be two
 * transfers with one module at once.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param port  0 to 255.
 * @param page  0 to 255.
 * @param offset  0 to 127 is the lower page, 128 to 255 the upper half of `page`.
 * @param[out] value  The byte.
 * @return 0; any other code is a failure and tried again. */
typedef cerrno (*lum_i2c_read_byte_cb)(uint32_t slot, uint32_t instance, uint32_t port,
                                       uint32_t page, uint32_t offset, uint8_t *value);

/** Reads consecutive bytes of a module's memory. Called as lum_i2c_read_byte_cb.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param port  0 to 255.
 * @param page  0 to 255.
 * @param offset  Of the first byte, as of lum_i2c_read_byte_cb.
 * @param length  Bytes, 2 or more.
 * @param[out] buffer  `length` bytes.
 * @return 0; any other code is a failure and tried again. */
typedef cerrno (*lum_i2c_read_block_cb)(uint32_t slot, uint32_t instance, uint32_t port,
                                        uint32_t page, uint32_t offset, int32_t length,
                                        uint8_t *buffer);

/** Writes one byte of a module's memory. Called from the thread that changes settings, the port's
 * mutex held unless taking it has failed. Nothing is written on a port whose mutex a deletion
 * keeps.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param port  0 to 255.
 * @param page  0 to 255.
 * @param offset  As of lum_i2c_read_byte_cb.
 * @param value  The byte.
 * @return 0; any other code is a failure and tried again. */
typedef cerrno (*lum_i2c_write_byte_cb)(uint32_t slot, uint32_t instance, uint32_t port,
                                        uint32_t page, uint32_t offset, uint8_t value);

/** The table of callbacks. Every slot but fw_upgrade_status may be null; what null means stands
 * with each. */
typedef struct lum_platform_cbs {
  /** Null: the request succeeds, but nothing is sent, never completed, and the request stays
   * allocated. */
  lum_im_req_by_name_cb im_req_by_name;
  lum_im_update_req_by_ifhandle_cb im_update_req_by_ifhandle; /**< Null: as im_req_by_name. */
  lum_ctrl_op_notify_cb ctrl_op_notify;                       /**< Null: not told. */
  lum_ctrl_update_notify_cb ctrl_update_notify;               /**< Null: not told. */
  lum_ifname_from_ifh_cb ifname_from_ifh;     /**< Null: the interface is unknown. */
  lum_led_get_state_cb led_get_state;         /**< Null: reading succeeds and changes nothing. */
  lum_led_set_state_cb led_set_state;         /**< Null: setting succeeds. */
  lum_fw_upgrade_status_cb fw_upgrade_status; /**< Must not be null. */
  lum_i2c_read_byte_cb i2c_read_byte;         /**< Null: reads succeed and change nothing. */
  lum_i2c_read_block_cb i2c_read_block;       /**< Null: reads succeed and change nothing. */
  lum_i2c_write_byte_cb i2c_write_byte;       /**< Null: writes succeed and are not made. */
  void (*reserved_12)(void);                  /**< Kept, never called. */
  void (*reserved_13)(void);                  /**< Kept, never called. */
} lum_platform_cbs;
LUM_ASSERT_LAYOUT(sizeof(lum_platform_cbs) == 13 * sizeof(void *));

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
