/** @file
 * Configuration: the settings that are written into the modules.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_CONFIGURATION_H
#define LUM_CONFIGURATION_H

#include <stdint.h>

#include "cerr.h"
#include "lum/layout.h"
#include "lum/ports.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_configuration Configuration
 * The settings of each sub-port: kept in lum_port_cfg, written into the module, and saved.
 * @{ */

#define LUM_CHANGE_THRESHOLD 0x2ull    /**< Change bit of threshold. */
#define LUM_CHANGE_P2_SETTING 0x200ull /**< Change bit of p2_setting. */
#define LUM_CHANGE_MODE 0x40000ull     /**< Change bit of mode. */
/** Change bit of setting_a, setting_b, enable_flag and sub1_flag. */
#define LUM_CHANGE_SETTINGS 0x10000000ull

#define LUM_HW_INFO_IN_SIZE 1152 /**< Bytes of an input record. */

/** Input record: a byte record with the positions named below, all u32, which are the fields of
 * lum_port_cfg. */
typedef struct lum_hw_info_in {
  uint64_t words[LUM_HW_INFO_IN_SIZE / 8]; /**< The record, aligned for its widest member. */
} lum_hw_info_in;
LUM_ASSERT_LAYOUT(sizeof(lum_hw_info_in) == LUM_HW_INFO_IN_SIZE);

#define LUM_HW_IN_THRESHOLD 48    /**< u32, signed; times 10 into 16 bits. */
#define LUM_HW_IN_P2_SETTING 56   /**< u32; times 10 into 16 bits. */
#define LUM_HW_IN_MODE 96         /**< u32; 3, or another. */
#define LUM_HW_IN_SETTING_A 564   /**< u32; times 10 into 16 bits. */
#define LUM_HW_IN_SUB1_FLAG 580   /**< u32; bit 0, written for sub-port 1 only. */
#define LUM_HW_IN_ENABLE_FLAG 584 /**< u32; bit 0. */
#define LUM_HW_IN_SETTING_B 600   /**< u32; times 10 into 16 bits. */

/** Takes over the fields of the records that the change bits name, writes them into the modules and
 * saves them. An unknown handle ends the call there. Takes each port's mutex. Waits for the bus, a
 * callback where the database does not know a handle, and for the disk as lum_chkpt_save().
 * @param count  Interfaces.
 * @param ifhandles  `count` interface handles.
 * @param records  `count` records, in the order of the handles.
 * @param changed_bits  `count` words of `LUM_CHANGE_` bits; other bits are kept and do nothing.
 * @return The last save's result, whether the modules took the settings or not, or 22 when nothing
 *   was saved: an array is null, `count` is below 1, or the first handle is unknown. */
cerrno lum_set_hw_info(int32_t count, const uint32_t *ifhandles, const lum_hw_info_in *records,
                       const uint64_t *changed_bits);

/** As lum_set_hw_info().
 * @param count  Interfaces.
 * @param ifhandles  `count` interface handles.
 * @param records  `count` records, in the order of the handles.
 * @param changed_bits  `count` words of `LUM_CHANGE_` bits; other bits are kept and do nothing.
 * @return As lum_set_hw_info(). */
cerrno lum_set_hw_info_by_ifh(int32_t count, const uint32_t *ifhandles,
                              const lum_hw_info_in *records, const uint64_t *changed_bits);

/** Writes settings into the module, unless a deletion keeps the port's mutex. Takes the port's
 * mutex. Waits for the bus.
 * @param sub_port  0 or 1.
 * @param data  The port.
 * @param changed_bits  Which settings, `LUM_CHANGE_` bits.
 * @return 0, whether the module took them or not, 22 for another sub-port or null, or the trace's
 *   result when the mutex cannot be released. */
cerrno lum_provision_port_cfg_data(uint32_t sub_port, lum_port_data *data, uint64_t changed_bits);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
