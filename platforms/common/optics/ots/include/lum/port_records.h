/** @file
 * The records that a port's data block is made of. */
#ifndef LUM_PORT_RECORDS_H
#define LUM_PORT_RECORDS_H

#include <stdint.h>

#include "lum/constants.h"
#include "lum/layout.h"

/** @defgroup lum_port_records Port records
 * The records that a port's data block, lum_port_data, is made of.
 * @{ */

#define LUM_DEVID_PORT_HANDLE 0x1u /**< lum_device_id_td.port_handle is valid. */
#define LUM_DEVID_IFHANDLE 0x2u    /**< lum_device_id_td.ifhandle is valid. */
#define LUM_DEVID_IFTYPE 0x4u      /**< lum_device_id_td.iftype is valid. */
#define LUM_DEVID_IFNAME 0x8u      /**< lum_device_id_td.ifname is valid. */

/** Device id of one sub-port. All zeros until its interface handle is first recorded. */
typedef struct lum_device_id_td {
  uint32_t valid;                   /**< Which of the following are valid, `LUM_DEVID_` bits. */
  uint32_t port_handle;             /**< The port's handle. */
  uint32_t iftype;                  /**< #LUM_IFTYPE_OTS, or 0 for a name of another type. */
  uint32_t ifhandle;                /**< The interface's handle. */
  char ifname[LUM_DEVID_NAME_SIZE]; /**< The interface's name, NUL-terminated. */
} lum_device_id_td;
LUM_ASSERT_LAYOUT(offsetof(lum_device_id_td, ifname) == 16);

/** One sub-port's controller interface. */
typedef struct lum_sub_port_intf {
  char ifname[LUM_IFNAME_SIZE]; /**< `Ots<rack>_<slot>_<instance>_<port>_<sub-port>`. */
  uint32_t ifhandle;            /**< 0 until the interface manager confirms the creation. */
  uint16_t iftype;              /**< #LUM_IFTYPE_OTS. */
  uint8_t zero[12];             /**< Not used, 0. */
  uint32_t controller_up;       /**< Never set by the library. */
  /** 1 from the creation's completion to the deletion's; an element skipped as benign has an
   * ifhandle of 0. */
  uint32_t created;
} lum_sub_port_intf;
LUM_ASSERT_LAYOUT(sizeof(lum_sub_port_intf) == 92);

/** What the module says about itself. Texts are trimmed and terminated but for the OUI and the date
 * code, whose eight characters may fill the field. Zeros stand for what could not be read. */
typedef struct lum_vendor_info {
  char vendor_name[17];          /**< Name of the vendor. */
  char vendor_rev[3];            /**< Revision. */
  char vendor_extra_code[5];     /**< Four characters at byte 148 of page 3. */
  char vendor_extra_id[19];      /**< Up to 18 characters at byte 192 of page 3. */
  uint8_t vendor_oui[3];         /**< The vendor's organisationally unique identifier. */
  char vendor_part_number[17];   /**< Part number. */
  char vendor_serial_number[17]; /**< Serial number. */
  char vendor_date_code[8];      /**< Date of manufacture; may lack its NUL. */
  /** `major << 8 | minor`. A poll stores bytes 39 and 40 as they are, so that a module which gives
   * the digits "17" has `1 << 8 | 7` at first, then 0x3137. */
  uint32_t fw_version;
  uint8_t reserved[100]; /**< Not used, 0. */
} lum_vendor_info;
LUM_ASSERT_LAYOUT(sizeof(lum_vendor_info) == 196);

/** One sub-port's polled values. */
typedef struct lum_dom_area {
  /** 0 to 2 are powers in hundredths of a dBm, negative ones (bit 12 set) one above their two's
   * complement: -5.00 dBm is 0xFE0D. 3 and 4 are in tenths of the module's unit. */
  uint16_t readings[5];
  /** As the module gives them; see #LUM_HW_OUT_STATUS_0, #LUM_HW_OUT_STATUS_1 and #LUM_HW_OUT_MODE
   * for what each of the three says. */
  uint8_t status[3];
  uint8_t reserved[59]; /**< Not used, 0. */
} lum_dom_area;
LUM_ASSERT_LAYOUT(sizeof(lum_dom_area) == 72);

/** Bytes of the status area that a new controller starts with cleared: both sub-ports' areas. */
#define LUM_STATUS_AREA_SIZE 144
LUM_ASSERT_LAYOUT(sizeof(lum_dom_area) * LUM_SUB_PORTS == LUM_STATUS_AREA_SIZE);

/** One sub-port's configuration, as last set. The module gets threshold, p2_setting, setting_a and
 * setting_b times ten, cut to 16 bits. */
typedef struct lum_port_cfg {
  uint32_t threshold;    /**< Signed; the upper threshold is 100 above ten times it. */
  uint32_t p2_setting;   /**< In tens of the module's unit. */
  uint32_t setting_a;    /**< In tens of the module's unit. */
  uint32_t setting_b;    /**< In tens of the module's unit. */
  uint32_t enable_flag;  /**< Bit 0. */
  uint32_t mode;         /**< 3, or another; the module gets 2 or 1. */
  uint32_t sub1_flag;    /**< Bit 0; sub-port 1 only. */
  uint32_t reserved;     /**< Not used, 0. */
  uint64_t changed_bits; /**< Every `LUM_CHANGE_` bit ever asked for. */
} lum_port_cfg;
LUM_ASSERT_LAYOUT(sizeof(lum_port_cfg) == 40);

/** A port's checkpoint record. */
typedef struct lum_chkpt_record {
  uint32_t created;                     /**< 1 once the record exists. */
  uint32_t key;                         /**< The port's rsip. */
  uint64_t chkpt_id;                    /**< The checkpoint service's entry id; 0: no record. */
  lum_port_cfg port_cfg[LUM_SUB_PORTS]; /**< Each sub-port's configuration. */
} lum_chkpt_record;
LUM_ASSERT_LAYOUT(sizeof(lum_chkpt_record) == 96);
LUM_ASSERT_LAYOUT(offsetof(lum_chkpt_record, port_cfg) == 16);

/** Values that tests add to one sub-port. */
typedef struct lum_test_injection {
  uint16_t pm_test_offsets[4]; /**< Added to readings 3, 4, 1 and 0, in their units. */
  uint64_t test_alarm_bits;    /**< `LUM_ALARM_` bits that are raised whatever the module says. */
} lum_test_injection;
LUM_ASSERT_LAYOUT(sizeof(lum_test_injection) == 16);

/** @} */

#endif
