/** @file
 * Hardware information: what is known of a port's hardware, in one record.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_HARDWARE_INFO_H
#define LUM_HARDWARE_INFO_H

#include <stdint.h>

#include "cerr.h"
#include "lum/layout.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_hardware_info Hardware information
 * What is known of a port's hardware, in one record for each interface.
 * @{ */

#define LUM_HW_INFO_OUT_SIZE 5616 /**< Bytes of an output record. */
#define LUM_HW_OUT_TEXT_SIZE 512  /**< Bytes of a text in an output record, its NUL included. */

/** Output record: a byte record with the positions named below. A port taken for empty has LED,
 * LED_VALID and PRESENT only. */
typedef struct lum_hw_info_out {
  uint64_t words[LUM_HW_INFO_OUT_SIZE / 8]; /**< The record, aligned for its widest member. */
} lum_hw_info_out;
LUM_ASSERT_LAYOUT(sizeof(lum_hw_info_out) == LUM_HW_INFO_OUT_SIZE);

#define LUM_HW_OUT_ALARMS 40          /**< u64; `LUM_ALARM_` bits. */
#define LUM_HW_OUT_PTAH_VALUES 56     /**< u32[55]; the alarm service's counters. */
#define LUM_HW_OUT_KIND 388           /**< u32; 83. */
#define LUM_HW_OUT_TEMPERATURE 392    /**< i32; hundredths of a degree Celsius. */
#define LUM_HW_OUT_SUPPLY 396         /**< u32; 10 mV. */
#define LUM_HW_OUT_LED 400            /**< u32; a `LUM_LED_` state. */
#define LUM_HW_OUT_LED_VALID 404      /**< u32; 1. */
#define LUM_HW_OUT_FIRMWARE 408       /**< char[512]; version of the firmware, as a text. */
#define LUM_HW_OUT_SERIAL_NUMBER 1432 /**< char[512]. */
#define LUM_HW_OUT_REVISION 1944      /**< char[512]. */
#define LUM_HW_OUT_PART_NUMBER 2456   /**< char[512]. */
#define LUM_HW_OUT_VENDOR_NAME 3480   /**< char[512]. */
#define LUM_HW_OUT_OUI 3992           /**< char[512]; three bytes in hexadecimal, a dot between. */
#define LUM_HW_OUT_EXTRA_ID 4504      /**< char[512]. */
#define LUM_HW_OUT_EXTRA_CODE 5016    /**< char[512]. */
#define LUM_HW_OUT_DATE_CODE 5528     /**< char[8]; may lack its NUL. */
#define LUM_HW_OUT_PRESENT 5548       /**< u32; 0 or 1: lum_port_data.inserted. */
#define LUM_HW_OUT_READING_4 5556     /**< u16; reading 4 / 10: the module's whole units. */
#define LUM_HW_OUT_STATUS_0 5564      /**< u32, sub-port 1 only: status byte 0 is 1 set, 2 clear. */
#define LUM_HW_OUT_STATUS_1 5568      /**< u8; status byte 1: 1 set, 0 clear. */
#define LUM_HW_OUT_VALID 5580         /**< u16; 0x42, with 0x20 where STATUS_0 is given. */
#define LUM_HW_OUT_MODE 5584          /**< u32; from status byte 2: 0 is 0, 2 is 3, others are 2. */
#define LUM_HW_OUT_POWER_2 5600       /**< u32; reading 2 in tenths of a microwatt. */
#define LUM_HW_OUT_POWER_1 5604       /**< u32; reading 1 in tenths of a microwatt. */
#define LUM_HW_OUT_POWER_0 5608       /**< u32; reading 0 in tenths of a microwatt. */

/** Fills one record per interface handle, from what the polling thread has stored. An unknown
 * handle ends the call there. Waits for a callback.
 * @param count  Interfaces.
 * @param ifhandles  `count` interface handles.
 * @param[in,out] records  `count` records; what is not written stays as the caller set it.
 * @return The last LED read's result, or 22 for a null array, a `count` below 1, or at the first
 *   unknown handle. */
cerrno lum_get_hw_info(int32_t count, const uint32_t *ifhandles, lum_hw_info_out *records);

/** As lum_get_hw_info().
 * @param count  Interfaces.
 * @param ifhandles  `count` interface handles.
 * @param[in,out] records  `count` records; what is not written stays as the caller set it.
 * @return As lum_get_hw_info(). */
cerrno lum_get_hw_info_by_ifh(int32_t count, const uint32_t *ifhandles, lum_hw_info_out *records);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
