/* liblum: manages the OTS ports of one node of an optical line system.
 *
 * A driver process fills in lum_infra_params with its table of callbacks, calls lum_lib_init and
 * lum_infra_init once, then lum_plat_init and lum_create_ports for each slot. From then on the
 * library polls the modules, drives the LEDs and answers the calls below. The driver tells it of
 * modules that come and go (lum_update_vendor_info) and has it hand readings and alarms on
 * (lum_update_pm_ptah_data); docs/driver.md lists all that a driver has to do.
 *
 * What holds for every call, unless its comment says otherwise:
 * - The result is a cerrno: 0 is success, 12 out of memory, 22 a bad argument or an unknown port.
 * - No pointer may be null where the comment does not say what becomes of it. Memory is read or
 *   written during the call only and stays the caller's.
 * - Any thread may call. Locks held for a moment only are not named: the database mutex where a
 *   port is looked up, those of the slot table and of the configuration.
 * - "Waits for" names what the call may wait for: the bus (a module transfer, at worst five
 *   attempts 30 ms apart), a callback other than a transfer, the disk (one checkpoint write) or a
 *   lock. Without it the call waits for nothing.
 * - rack, slot, instance and port are 0 to 255; slot-table calls know slots 0 to 15 and instances
 *   0 to 3, and treat any other as unused.
 * - Traces go to the channels ct_err, ct_info and ct_debug. */
#ifndef LUM_H
#define LUM_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "cerr.h"
#include "chkpt.h"
#include "ctrace.h"
#include "event_manager.h"
#include "imca.h"
#include "wavl.h"

#ifdef __cplusplus
#define LUM_ASSERT_LAYOUT(condition) static_assert(condition, #condition)
extern "C" {
#else
#define LUM_ASSERT_LAYOUT(condition) _Static_assert(condition, #condition)
#endif

#pragma GCC visibility push(default)

/* ------------------------------------------------------------------------------------------------
 * Constants
 */

#define LUM_VERSION_MAJOR 1
#define LUM_VERSION_MINOR 0
#define LUM_VERSION_PATCH 0

#define LUM_SUB_PORTS 2
#define LUM_IFTYPE_OTS 188u /* interface type of an OTS controller */
#define LUM_IFNAME_SIZE 64  /* bytes of an interface name, its NUL included */
#define LUM_DEVID_NAME_SIZE 65
#define LUM_MAX_SLOTS 16
#define LUM_MAX_INSTANCES 4
#define LUM_NOT_FOUND 0xFFFFFFFFu /* result of the simple conversion look-ups */

/* LED states. Other values are passed through. */
#define LUM_LED_OFF 0u    /* cleared */
#define LUM_LED_NORMAL 1u /* the last good poll found no fault flag raised */
#define LUM_LED_FAULT 3u  /* flag raised, module removed, or no good poll since create or update */

/* Change bits of lum_set_hw_info. */
#define LUM_CHANGE_THRESHOLD 0x2ull
#define LUM_CHANGE_P2_SETTING 0x200ull
#define LUM_CHANGE_MODE 0x40000ull
#define LUM_CHANGE_SETTINGS 0x10000000ull /* setting_a, setting_b, enable_flag, sub1_flag */

/* Bits of a sub-port's alarm bitmap, named after the lower-page byte whose flags raise them. */
#define LUM_ALARM_FLAG_12 0x1ull
#define LUM_ALARM_FLAG_10 0x2ull
#define LUM_ALARM_FLAG_13 0x4ull
#define LUM_ALARM_FLAG_49_A 0x20000ull /* this and the next: sub-port 1 only */
#define LUM_ALARM_FLAG_49_B 0x40000ull
#define LUM_ALARM_FLAG_64_HIGH 0x80000ull
#define LUM_ALARM_FLAG_64_LOW 0x100000ull

/* The lower-page bytes whose flags a poll keeps, in the order of lum_port_data.module_flags. */
#define LUM_MODULE_FLAG_PLACES \
  { 9, 10, 11, 12, 13, 64, 70, 49 }
#define LUM_MODULE_FLAGS 8

/* Operation codes given to the interface manager. */
#define LUM_IM_CREATE 0x80000004u
#define LUM_IM_DELETE 0x80000005u
#define LUM_IM_UPDATE 0x80000006u

/* Create reply element result that is not a failure: the element is skipped. */
#define LUM_IM_ELEMENT_BENIGN 0x809A4200u

/* ------------------------------------------------------------------------------------------------
 * Platform callbacks
 */

/* How the library reaches the interface manager, the client, the LEDs and the modules. Every slot
 * but fw_upgrade_status may be null; what null means stands with each. All return 0 for success.
 * Several threads may make the same callback at once. It may look ports up through this header. It
 * must not call lum_delete_ports, nor wait for another port's transfer, nor, where a port's mutex
 * may be held, make a call that takes it. It must come back: while the polling thread waits for it,
 * no port is polled. */
typedef struct lum_platform_cbs {
  /* Sends a create or delete batch (operation LUM_IM_CREATE or LUM_IM_DELETE). `names` holds
   * `count` names, of which those of empty elements are null; `payload` holds `payload_count`
   * (= count) elements of LUM_CREATE_ELEMENT_SIZE or LUM_DELETE_ELEMENT_SIZE bytes. Both are gone
   * when the call returns and are to be copied. `context` goes to `complete` unchanged, exactly
   * once per accepted batch and never for a refused one; do not wait for that here. Called from
   * the thread that creates, replays or deletes, and from inside a create completion. Null: the
   * request succeeds, but nothing is sent, never completed, and the request stays allocated. */
  cerrno (*im_req_by_name)(const char *const *names, uint16_t iftype, const void *payload,
                           uint32_t payload_count, uint32_t operation, void *context,
                           uint32_t count, imca_completion complete);
  /* Sends an update batch of `count` elements of LUM_UPDATE_ELEMENT_SIZE bytes; `payload_size` is
   * the payload's size in bytes; `ifhandles` is gone once `complete` is called. Called from the
   * thread that updates. Otherwise as above. */
  cerrno (*im_update_req_by_ifhandle)(const uint32_t *ifhandles, uint32_t iftype,
                                      const void *payload, uint32_t payload_size,
                                      uint32_t operation, void *context, uint32_t count,
                                      imca_completion complete);
  /* Tells the client of created (operation 1) or deleted (0) controllers; arrays of `count`, valid
   * during the call. The handle of an element skipped as benign is 0. Of a deletion `ifhandles` is
   * the batch's, while `rsips` and `sub_ports` hold those found, packed, and zeros behind them:
   * look the handles up, not the positions. Not called for a batch with an odd count of creations,
   * an unknown port or an unknown first handle, or without memory. Called on the interface
   * manager's thread. Null: not told. */
  cerrno (*ctrl_op_notify)(uint32_t operation, uint32_t count, const uint32_t *rsips,
                           const uint32_t *sub_ports, const uint32_t *ifhandles);
  /* Tells the client of updated controllers, one rsip for each, 0 for one that is not known any
   * more. As above. */
  cerrno (*ctrl_update_notify)(uint32_t count, const uint32_t *rsips);
  /* Writes the name of an interface that the ports database does not know to `name`
   * (LUM_DEVID_NAME_SIZE bytes). Called on the thread of any call that takes an interface handle,
   * and on the interface manager's. Null: the interface is unknown. */
  cerrno (*ifname_from_ifh)(uint32_t ifhandle, char *name);
  /* Reads the port's LED; `zero` is always 0. Called from the thread that asks. A failure has the
   * library answer with the state it asked for last. Null: reading succeeds and changes nothing. */
  cerrno (*led_get_state)(uint32_t rsip, uint32_t zero, uint32_t *state);
  /* Sets the port's LED, each time to LUM_LED_OFF first and then to another state. Called on the
   * caller's thread, the interface manager's and, with the port's mutex held, the polling thread;
   * for one port by several threads at once, where whoever ends last sets it again as recorded. It
   * must not set the same LED through this header. Null: setting succeeds. */
  cerrno (*led_set_state)(uint32_t rsip, uint32_t zero, uint32_t state);
  /* Writes whether a firmware upgrade of the port's module is in progress: 0 no, other yes. Called
   * on the polling thread, for each port in each cycle, and by lum_update_pm_ptah_data. The result
   * is ignored. Must not be null. */
  cerrno (*fw_upgrade_status)(uint32_t rsip, uint32_t *status);
  /* Reads one byte of the module's memory. `page` is 0 to 255; `offset` 0 to 127 is the lower page,
   * 128 to 255 the upper half of `page`. The rack is not given. Called on the polling thread, the
   * caller's and, when a controller is created again, the interface manager's; with the port's
   * mutex held but for identity reads and the visits that follow a failed transfer, so there may be
   * two transfers with one module at once. Any result but 0 is a failure and tried again. Null:
   * reads succeed and change nothing. */
  cerrno (*i2c_read_byte)(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                          uint32_t offset, uint8_t *value);
  /* Reads `length` (2 or more) consecutive bytes. As above. */
  cerrno (*i2c_read_block)(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                           uint32_t offset, int32_t length, uint8_t *buffer);
  /* Writes one byte. Called from the thread that changes settings, the port's mutex held unless
   * taking it has failed; nothing is written on a port whose mutex a deletion keeps. Null: writes
   * succeed and are not made. */
  cerrno (*i2c_write_byte)(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                           uint32_t offset, uint8_t value);
  /* Kept, never called. */
  void (*reserved_12)(void);
  void (*reserved_13)(void);
} lum_platform_cbs;
LUM_ASSERT_LAYOUT(sizeof(lum_platform_cbs) == 13 * sizeof(void *));

/* ------------------------------------------------------------------------------------------------
 * Start-up parameters and the library context
 */

#define LUM_PROCESS_NAME_SIZE 256

typedef struct lum_infra_params {
  event_manager evm;      /* the client's event manager */
  uint32_t restart;       /* non-zero: the process is a restart of an earlier one */
  uint32_t client_data;   /* kept in the context, not interpreted */
  uint32_t pm_alarm_test; /* non-zero: install the alarm test hooks */
  char process_name[LUM_PROCESS_NAME_SIZE]; /* empty: "lum_library" */
  const lum_platform_cbs *platform_cbs;     /* copied */
} lum_infra_params;
LUM_ASSERT_LAYOUT(offsetof(lum_infra_params, process_name) == 20);

/* The one library context. Written during start-up and by the library itself; clients read. */
typedef struct lum_ctx {
  uint8_t controller_count; /* controllers of accepted create batches, replays included, less those
                               of delete batches, modulo 256; nothing is polled while it is 0: with
                               128 ports, or with 64 that have been replayed once */
  uint32_t restart;
  uint32_t resync; /* 1 from lum_replay_controllers to the next resync, slot or creation */
  uint32_t client_data;
  char process_name[LUM_PROCESS_NAME_SIZE];
  event_manager evm;
  uint32_t ea_replay_required_bitmap; /* bit 0: a replay to the entity agent is owed */
  uint8_t is_resync_with_ea_complete;
  lum_platform_cbs platform_cbs;
  uint32_t dom_reserved;
  pthread_t dom_thread;
  uint32_t dom_thread_started;
  uint64_t chkpt_table;
  chkpt_appdesc chkpt_app;
} lum_ctx;

/* ------------------------------------------------------------------------------------------------
 * Port records
 */

/* Slot properties given to lum_plat_init. */
typedef struct lum_slot_props {
  uint32_t used;     /* non-zero: the instance is in use */
  uint32_t capacity; /* ports it may hold, 0 to 65535 */
} lum_slot_props;

/* One port's properties, as given to lum_create_ports and as kept in the slot table. */
typedef struct lum_port_props {
  uint32_t rsip;            /* rack << 24 | slot << 16 | instance << 8 | port */
  uint32_t port_index;      /* the rsip's port number; low 16 bits count */
  uint32_t *context;        /* the library's own cell; null in input records */
  uint32_t client_words[2]; /* not used */
  uint32_t port_handle;     /* 1 to 65535, one of its own for each port of the node */
  uint32_t in_use;          /* the library's own */
} lum_port_props;
LUM_ASSERT_LAYOUT(sizeof(lum_port_props) == 32);

#define LUM_DEVID_PORT_HANDLE 0x1u
#define LUM_DEVID_IFHANDLE 0x2u
#define LUM_DEVID_IFTYPE 0x4u
#define LUM_DEVID_IFNAME 0x8u

/* Device id of one sub-port. */
typedef struct lum_device_id_td {
  uint32_t valid; /* which of the following are valid, LUM_DEVID_ bits */
  uint32_t port_handle;
  uint32_t iftype;
  uint32_t ifhandle;
  char ifname[LUM_DEVID_NAME_SIZE];
} lum_device_id_td;
LUM_ASSERT_LAYOUT(offsetof(lum_device_id_td, ifname) == 16);

/* One sub-port's controller interface. */
typedef struct lum_sub_port_intf {
  char ifname[LUM_IFNAME_SIZE]; /* Ots<rack>_<slot>_<instance>_<port>_<sub-port> */
  uint32_t ifhandle;            /* 0 until the interface manager confirms the creation */
  uint16_t iftype;              /* LUM_IFTYPE_OTS */
  uint8_t zero[12];
  uint32_t controller_up; /* never set by the library */
  uint32_t created;       /* 1 from the creation's completion to the deletion's; an element
                               skipped as benign has an ifhandle of 0 */
} lum_sub_port_intf;
LUM_ASSERT_LAYOUT(sizeof(lum_sub_port_intf) == 92);

/* What the module says about itself. Texts are trimmed and terminated but for the OUI and the date
 * code, whose eight characters may fill the field. */
typedef struct lum_vendor_info {
  char vendor_name[17];
  char vendor_rev[3];
  char vendor_extra_code[5];
  char vendor_extra_id[19];
  uint8_t vendor_oui[3];
  char vendor_part_number[17];
  char vendor_serial_number[17];
  char vendor_date_code[8];
  uint32_t fw_version; /* major << 8 | minor; a poll stores bytes 39 and 40 as they are, so that a
                          module which gives the digits "17" has 1 << 8 | 7 at first, then 0x3137 */
  uint8_t reserved[100];
} lum_vendor_info;
LUM_ASSERT_LAYOUT(sizeof(lum_vendor_info) == 196);

/* One sub-port's polled values. */
typedef struct lum_dom_area {
  /* 0 to 2 are powers in hundredths of a dBm, negative ones (bit 12 set) one above their two's
   * complement: -5.00 dBm is 0xFE0D. 3 and 4 are in tenths of the module's unit. */
  uint16_t readings[5];
  uint8_t status[3]; /* as the module gives them; see LUM_HW_OUT_STATUS_0, _STATUS_1 and _MODE */
  uint8_t reserved[59];
} lum_dom_area;
LUM_ASSERT_LAYOUT(sizeof(lum_dom_area) == 72);

/* Bytes of the status area that a new controller starts with cleared: both sub-ports' areas. */
#define LUM_STATUS_AREA_SIZE 144

/* One sub-port's configuration, as last set. The module gets threshold, p2_setting, setting_a and
 * setting_b times ten, cut to 16 bits. */
typedef struct lum_port_cfg {
  uint32_t threshold; /* signed; the module's upper threshold is 100 above ten times it */
  uint32_t p2_setting;
  uint32_t setting_a;
  uint32_t setting_b;
  uint32_t enable_flag; /* bit 0 */
  uint32_t mode;        /* 3, or another; the module gets 2 or 1 */
  uint32_t sub1_flag;   /* bit 0; sub-port 1 only */
  uint32_t reserved;
  uint64_t changed_bits; /* every LUM_CHANGE_ bit ever asked for */
} lum_port_cfg;
LUM_ASSERT_LAYOUT(sizeof(lum_port_cfg) == 40);

/* A port's checkpoint record. */
typedef struct lum_chkpt_record {
  uint32_t created;
  uint32_t key;      /* rsip */
  uint64_t chkpt_id; /* 0: no record */
  lum_port_cfg port_cfg[LUM_SUB_PORTS];
} lum_chkpt_record;
LUM_ASSERT_LAYOUT(sizeof(lum_chkpt_record) == 96);
LUM_ASSERT_LAYOUT(offsetof(lum_chkpt_record, port_cfg) == 16);

/* Values that tests add to one sub-port. */
typedef struct lum_test_injection {
  uint16_t pm_test_offsets[4]; /* added to readings 3, 4, 1 and 0 */
  uint64_t test_alarm_bits;
} lum_test_injection;
LUM_ASSERT_LAYOUT(sizeof(lum_test_injection) == 16);

/* Everything known about one port: the optics data block. Words and bytes that several threads
 * share are single words to the reader; a reader may see the old or the new one. */
typedef struct lum_port_data {
  uint32_t rack;
  uint32_t slot;
  uint32_t instance;
  uint32_t zero;
  uint32_t port;
  uint32_t provisioning_needed;  /* the provisioning handler visits the port */
  uint32_t force_reprovisioning; /* kept for the client */
  uint32_t state_word;           /* not used */
  uint32_t led_state;            /* last state asked for */
  lum_sub_port_intf sub_port[LUM_SUB_PORTS];
  lum_device_id_td device_id[LUM_SUB_PORTS];
  lum_vendor_info vendor;
  lum_dom_area dom[LUM_SUB_PORTS]; /* the status area */
  uint8_t reserved_1[64];
  lum_port_cfg port_cfg[LUM_SUB_PORTS];
  int16_t module_temperature;             /* 1/256 degree Celsius */
  uint16_t module_word_16;                /* supply, 100 microvolt */
  uint8_t module_flags[LUM_MODULE_FLAGS]; /* the bytes at LUM_MODULE_FLAG_PLACES */
  uint8_t reserved_2[12];
  lum_test_injection test[LUM_SUB_PORTS];
  uint8_t reserved_3[4];
  uint8_t transceiver_disabled; /* 1: module told removed, or deletion asked for; no transfers,
                                   until the next insertion */
  uint32_t inserted;            /* 1 from each creation of the controllers, whatever is in the cage,
                                   to lum_update_vendor_info(rsip, 0) */
  uint32_t new_memmap;          /* module uses the newer memory map */
  lum_chkpt_record chkpt;       /* live checkpoint state */
  uint8_t is_dom_enabled;       /* 1 from the moment both controllers exist to a deletion: polled */
  pthread_mutex_t port_mutex;   /* held while polling and provisioning the module, and from a
                                   deletion until the port goes by the deletion's thread. A client
                                   that takes it tries only: it may never be free again */
  /* The number that the library has given to the thread of the deletion which keeps the mutex, and
   * gives to no other; 0 none, all ones while the mutex is made anew. */
  uint64_t mutex_kept_by;
  uint16_t mutex_visitors; /* threads at the mutex; the library's own, as are the next two */
  uint16_t mutex_waiters;  /* threads asleep at the mutex, or about to be */
  uint8_t removed;         /* 1: the port has left the database */
  uint8_t deletion_asked;  /* 1 from lum_delete_ports until the port goes or is created again */
} lum_port_data;
LUM_ASSERT_LAYOUT(offsetof(lum_port_data, led_state) == 32);
LUM_ASSERT_LAYOUT(offsetof(lum_port_data, dom) ==
                  offsetof(lum_port_data, vendor) + sizeof(lum_vendor_info));
LUM_ASSERT_LAYOUT(sizeof(lum_dom_area) * LUM_SUB_PORTS == LUM_STATUS_AREA_SIZE);
LUM_ASSERT_LAYOUT(offsetof(lum_port_data, port_cfg) >
                  offsetof(lum_port_data, dom) + LUM_STATUS_AREA_SIZE);
LUM_ASSERT_LAYOUT(offsetof(lum_port_data, chkpt) ==
                  offsetof(lum_port_data, new_memmap) + sizeof(uint32_t));
LUM_ASSERT_LAYOUT(offsetof(lum_port_data, is_dom_enabled) ==
                  offsetof(lum_port_data, chkpt) + sizeof(lum_chkpt_record));

/* Node of the ports database. */
typedef struct lum_port_node_info {
  wavl_link links[2]; /* by rsip, by port_handle */
  uint32_t rsip;
  uint32_t port_handle; /* 0 until lum_ports_db_update_entry */
  lum_port_data data;
} lum_port_node_info;
LUM_ASSERT_LAYOUT(offsetof(lum_port_node_info, rsip) == 2 * sizeof(wavl_link));

/* Header of the ports database. */
typedef struct lum_ports_db {
  wavl_tree tree;
  pthread_mutex_t mutex;
  uint32_t rsip_count;        /* nodes put into index 0 */
  uint32_t port_handle_count; /* nodes put into index 1; may wrap below zero, only printed */
} lum_ports_db;

/* ------------------------------------------------------------------------------------------------
 * Controller batches
 */

#define LUM_ATTRS_SIZE 1696
#define LUM_CREATE_ELEMENT_SIZE 3232
#define LUM_UPDATE_ELEMENT_SIZE 1872
#define LUM_DELETE_ELEMENT_SIZE 3

/* A controller's attribute block; a byte record, see docs/wire-records.md. */
typedef struct lum_controller_attrs {
  uint8_t bytes[LUM_ATTRS_SIZE];
} lum_controller_attrs;
LUM_ASSERT_LAYOUT(sizeof(lum_controller_attrs) == LUM_ATTRS_SIZE);

/* Which controller interface. rack to port read as one big-endian word are the rsip. */
typedef struct lum_controller_id {
  uint8_t valid;
  uint8_t rack;
  uint8_t slot;
  uint8_t instance;
  uint8_t port;
  uint8_t sub_port;
  uint32_t ifhandle;
} lum_controller_id;
LUM_ASSERT_LAYOUT(offsetof(lum_controller_id, sub_port) == 5);

typedef struct lum_controller_create_entry {
  lum_controller_id id;
  lum_controller_attrs attrs;
} lum_controller_create_entry;
LUM_ASSERT_LAYOUT(offsetof(lum_controller_create_entry, id) == 0);

/* The three requests. Each is allocated zero-filled with calloc, as are its arrays, and freed by
 * the matching done-handler; of an update request only the handles are, states and attrs stay with
 * the caller and are read during the call only. */
typedef struct lum_controller_create_request {
  uint32_t intf_type;
  int32_t count;
  lum_controller_create_entry *entries;
  uint32_t resync;
} lum_controller_create_request;

typedef struct lum_controller_delete_request {
  int32_t count;
  uint32_t *ifhandles;
  void *zero;
} lum_controller_delete_request;

typedef struct lum_controller_update_request {
  int32_t count;
  uint32_t *ifhandles;
  uint32_t *states;            /* read when state_change is set */
  lum_controller_attrs *attrs; /* read when capability_change is set */
  uint32_t state_change;
  uint32_t capability_change;
} lum_controller_update_request;

/* ------------------------------------------------------------------------------------------------
 * Hardware-information records: byte records with named positions
 */

#define LUM_HW_INFO_IN_SIZE 1152
#define LUM_HW_INFO_OUT_SIZE 5616

typedef struct lum_hw_info_in {
  uint64_t words[LUM_HW_INFO_IN_SIZE / 8];
} lum_hw_info_in;
LUM_ASSERT_LAYOUT(sizeof(lum_hw_info_in) == LUM_HW_INFO_IN_SIZE);

typedef struct lum_hw_info_out {
  uint64_t words[LUM_HW_INFO_OUT_SIZE / 8];
} lum_hw_info_out;
LUM_ASSERT_LAYOUT(sizeof(lum_hw_info_out) == LUM_HW_INFO_OUT_SIZE);

/* Input record, all u32: the fields of lum_port_cfg. */
#define LUM_HW_IN_THRESHOLD 48    /* signed, x 10 into 16 bits */
#define LUM_HW_IN_P2_SETTING 56   /* x 10 into 16 bits */
#define LUM_HW_IN_MODE 96         /* 3, or another */
#define LUM_HW_IN_SETTING_A 564   /* x 10 into 16 bits */
#define LUM_HW_IN_SUB1_FLAG 580   /* bit 0; written for sub-port 1 only */
#define LUM_HW_IN_ENABLE_FLAG 584 /* bit 0 */
#define LUM_HW_IN_SETTING_B 600   /* x 10 into 16 bits */

/* Output record. A port taken for empty has LED, LED_VALID and PRESENT only. */
#define LUM_HW_OUT_ALARMS 40          /* u64 */
#define LUM_HW_OUT_PTAH_VALUES 56     /* u32[55] */
#define LUM_HW_OUT_KIND 388           /* u32, 83 */
#define LUM_HW_OUT_TEMPERATURE 392    /* i32, hundredths of a degree */
#define LUM_HW_OUT_SUPPLY 396         /* u32, 10 mV */
#define LUM_HW_OUT_LED 400            /* u32 */
#define LUM_HW_OUT_LED_VALID 404      /* u32, 1 */
#define LUM_HW_OUT_FIRMWARE 408       /* char[512] */
#define LUM_HW_OUT_SERIAL_NUMBER 1432 /* char[512] */
#define LUM_HW_OUT_REVISION 1944      /* char[512] */
#define LUM_HW_OUT_PART_NUMBER 2456   /* char[512] */
#define LUM_HW_OUT_VENDOR_NAME 3480   /* char[512] */
#define LUM_HW_OUT_OUI 3992           /* char[512] */
#define LUM_HW_OUT_EXTRA_ID 4504      /* char[512] */
#define LUM_HW_OUT_EXTRA_CODE 5016    /* char[512] */
#define LUM_HW_OUT_TEXT_SIZE 512
#define LUM_HW_OUT_DATE_CODE 5528 /* char[8] */
#define LUM_HW_OUT_PRESENT 5548   /* u32, 0 or 1: lum_port_data.inserted */
#define LUM_HW_OUT_READING_4 5556 /* u16, reading 4 / 10: the module's whole units */
#define LUM_HW_OUT_STATUS_0 5564  /* u32, sub-port 1 only: status byte 0 is 1 set, 2 clear */
#define LUM_HW_OUT_STATUS_1 5568  /* u8, status byte 1: 1 set, 0 clear */
#define LUM_HW_OUT_VALID 5580     /* u16, 0x42, with 0x20 where STATUS_0 is given */
#define LUM_HW_OUT_MODE 5584      /* u32, from status byte 2: 0 is 0, 2 is 3, others are 2 */
#define LUM_HW_OUT_POWER_2 5600   /* u32, reading 2 in tenths of a microwatt */
#define LUM_HW_OUT_POWER_1 5604   /* u32, reading 1, likewise */
#define LUM_HW_OUT_POWER_0 5608   /* u32, reading 0, likewise */

/* ------------------------------------------------------------------------------------------------
 * Exported data
 */

/* Trace channels; 0 until lum_infra_init has opened them. The library writes nothing to
 * ct_periodic. Read only. */
extern ctrace_handle ct_err;
extern ctrace_handle ct_info;
extern ctrace_handle ct_debug;
extern ctrace_handle ct_periodic;

/* The ports database. Walk it with lum_ports_db_walk_via_rsip: a client's own walk over the tree
 * may stand on a node that is being freed. */
extern lum_ports_db lum_platform;

/* State of the provisioning handler; read only. */
extern pthread_mutex_t prov_lock;         /* guards the next two */
extern uint32_t lum_pending_provisioning; /* 1: a pass has been asked for and not started */
extern uint32_t lum_prov_pulse_sent;      /* 1: a pulse is queued */
extern uint32_t lum_prov_in_progress;     /* 1: the handler is walking the ports */
extern uint32_t prov_handler_run_count;   /* times the handler has been entered */
extern uint32_t prov_thread_init_done;    /* 1: the handler is attached */
extern uint32_t ots_async_op;             /* always 0 */

/* Names of the alarm test suites. */
extern char test_string[4][40];

/* ------------------------------------------------------------------------------------------------
 * Start-up
 */

/* Creates the start-up lock and registers the checkpoint table. Call once, before lum_infra_init
 * and never beside it. Its traces go to channel 0: none is open yet. Returns 0 or the checkpoint
 * service's code. Waits for the disk. */
uint32_t lum_lib_init(void);

/* Starts the library: fills the context from `params` (nothing of it is kept), opens the
 * trace channels, initialises the modules, reads the checkpoint records, blocks SIGRTMIN+6 and
 * SIGRTMIN+10 in the calling thread and starts the polling thread. A second call does nothing and
 * returns 0. Returns 0, the start-up lock's code, or the code of the thread's creation; a failing
 * trace channel, module or checkpoint walk is only traced (the walk's code is the result where
 * dom_thread_started was set already). A mask that cannot be set, and trees that cannot be started,
 * end the process. Takes the start-up lock. Waits for the disk. */
uint32_t lum_infra_init(const lum_infra_params *params);

/* Returns the library context; never fails. */
lum_ctx *lum_get_ctx(void);

/* Initialises, in table order, the internal modules that are not initialised yet; stops at the
 * first failure and returns its code. Called by lum_infra_init, never beside itself. */
uint32_t lum_modules_init(event_manager evm, uint32_t restart);

/* Tells every module that wants to know of a created port. `argument` goes to the modules as it is.
 * Returns 0, or the look-up's code when `ifname` is unknown, no module then being told. */
uint32_t lum_modules_port_create(const char *ifname, const void *argument);

/* Tells every module that wants to know of a deleted port, also when `ifname` is unknown. Always 0.
 */
uint32_t lum_modules_port_delete(const char *ifname);

/* ------------------------------------------------------------------------------------------------
 * Traces and texts
 */

/* Opens the four trace channels. Returns 0, or 0xFFFFFFFF at the first failure: what is open stays
 * open. Called by lum_infra_init. */
uint32_t lum_init_ctrace(event_manager evm);

/* Writes out and closes the four trace channels. Returns 0. The polling thread does not end and
 * goes on tracing to what is closed; a driver that stops rather calls ctrace_dump for each channel
 * and ends the process. */
uint32_t lum_close_ctrace(void);

/* Returns the name of an interface state (0 to 4), "UNKNOWN" for any other; constant text. */
const char *lum_intf_state_to_string(uint32_t state);

/* Cuts the white space at the end of the first `len` bytes of `buf`, which has len + 1 bytes: a NUL
 * goes behind the last byte that stays. Does nothing when `len` is below 1. */
void lum_trim_trailing_spaces(char *buf, int32_t len);

/* Traces `len` bytes in hexadecimal, whole lines of 16 only. Reads one byte even when `len` is
 * below 1; null gives the heading only. */
void lum_print_hex_buffer_to_trace(const uint8_t *buf, int32_t len);

/* ------------------------------------------------------------------------------------------------
 * Interface names
 */

/* Writes Ots<rack>_<slot>_<instance>_<port>_<sub_port> to `dst` (LUM_IFNAME_SIZE bytes), or an
 * empty name when `iftype` is not LUM_IFTYPE_OTS. `reserved` is ignored. Always 0. */
cerrno lum_construct_if_name(uint32_t iftype, uint32_t rack, uint32_t slot, uint32_t instance,
                             uint32_t port, uint32_t reserved, uint32_t sub_port, char *dst);

/* Takes a name apart. Every output may be null; one that is not produced is left untouched, so the
 * caller zeroes them first. `*iftype` becomes LUM_IFTYPE_OTS, or 0 for a name of another type.
 * Returns 0, or the code of the name parser or of the slot's conversion. */
cerrno lum_parse_if_name(const char *ifname, uint32_t *iftype, uint32_t *rack, uint32_t *slot,
                         uint32_t *instance, uint32_t *port, uint32_t *sub_port_valid,
                         uint32_t *sub_port);

/* ------------------------------------------------------------------------------------------------
 * Ports database. A node or port data block handed out stays valid only while its port exists.
 */

/* Sets the tree up. Returns wavl_init's result. Called during start-up. */
cerrno lum_ports_db_init(void);

/* Adds a node whose data is a copy of `data`. Returns 0, 11 when the database is not running, 12,
 * 14 when the rsip is there already, or a mutex code. Takes the database mutex. */
cerrno lum_ports_db_add_entry(uint32_t rsip, const lum_port_data *data);

/* Gives a node its port handle. Returns 0, 14 when the rsip is unknown, or a mutex code: the node
 * then stays, with its handle set but not to be found by it. A handle that another node has, and a
 * second update of the same node, drop this node from the database and return 0. Takes the database
 * mutex. */
cerrno lum_ports_db_update_entry(uint32_t rsip, uint32_t port_handle);

/* Return the node of an rsip, or null. Take the database mutex. */
lum_port_node_info *lum_ports_db_find_entry(uint32_t rsip);
lum_port_node_info *lum_get_port_node_from_rsip(uint32_t rsip);

/* Returns the node of a port handle, or null. */
lum_port_node_info *lum_get_port_node_from_port_handle(uint32_t port_handle);

/* Removes a node. Returns 0, 2 when the rsip is unknown, 14, or a mutex code. Takes the database
 * mutex. The node's memory lives on until no thread of the library can still look at it. */
cerrno lum_ports_db_remove_entry(uint32_t rsip);

/* Calls `callback` with every node in rsip order until it returns non-zero. Nodes may come and go
 * meanwhile; a node's memory lives on while the callback runs. Always 0. */
cerrno lum_ports_db_walk_via_rsip(wavl_callback callback, void *context);

/* Conversions. Return 0, or 0xFFFFFFFF, the output then being untouched, when there is none. */
cerrno lum_ports_db_rsip2port_handle(uint32_t rsip, uint32_t *port_handle);
cerrno lum_ports_db_port_handle2rsip(uint32_t port_handle, uint32_t *rsip);

/* Copies the device id of an interface. A handle whose name is known but whose port is not in the
 * database leaves `out` untouched and returns 0; lum_ports_db_ifname2devid returns 0xFFFFFFFF in
 * that case. Both return 0xFFFFFFFF when nothing is known or the sub-port is above 1, or the name
 * parser's code. A name without a sub-port ends the process once its port is found. */
cerrno lum_ports_db_ifh2devid(uint32_t ifhandle, lum_device_id_td *out);
cerrno lum_ports_db_ifname2devid(const char *ifname, lum_device_id_td *out);

/* Copies the device id of sub-port 0 or 1. Returns 0, or 2 when there is none. */
cerrno lum_ports_db_port_handle2devid(uint32_t port_handle, uint32_t sub_port,
                                      lum_device_id_td *out);

/* Writes the address of the port data of an interface to `*out`. Returns 0, 22 when the port is
 * unknown, or the name parser's code. */
cerrno lum_get_port_info(const char *ifname, lum_port_data **out);

/* As lum_get_port_info by interface handle; `device_id` may be null, else it receives the device
 * id. Returns 0, 2 when the interface is unknown, or lum_get_port_info's result. */
cerrno lum_get_s_dev_info(uint32_t ifhandle, lum_port_data **out, lum_device_id_td *device_id);

/* Writes the rsip of an interface to `*rsip`. Returns 0, 22 when it has no name, or the name
 * parser's code, `*rsip` then holding what could be parsed. */
cerrno lum_ports_db_get_rsip_from_ifh(uint32_t ifhandle, uint32_t *rsip);

/* Writes the name of a port's interface to `dst` (LUM_IFNAME_SIZE bytes). Always 0. */
cerrno lum_get_intfname_for_port(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t port,
                                 uint32_t sub_port, char *dst);

/* ------------------------------------------------------------------------------------------------
 * Platform data and port properties. The slot table has a lock of its own; see lum_plat_init for
 * what must still come one at a time.
 */

/* Initialiser of the "PD Data Module": clears and starts the ports database. Arguments ignored.
 * Returns 0 or 22; a database that cannot be started ends the process. During start-up only. */
cerrno lum_platform_data_init(event_manager evm, uint32_t restart);

/* Adds a node for each listed port. Returns 0, 22, or the first failure's code, the ports before it
 * staying in the database. Takes the database mutex. */
cerrno lum_platform_ctx_init(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                             const uint32_t *ports);

/* Removes the port's node when neither of its controllers exists any more. Returns 0 or the
 * removal's code. Takes the database mutex. */
cerrno lum_platform_ports_deinit(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t port);

/* Hook without behaviour. Always 0. */
cerrno lum_ctx_derive_hw_nodeid(uint32_t rack, uint32_t slot, uint32_t instance);

/* Opens an instance of a slot, also one that is open: its entries are discarded. Returns its array
 * of `props->capacity` entries, owned by the library and valid until the instance is closed or
 * opened again; null when there is no memory or no such slot. */
lum_port_props *lum_slot_properties_init(uint32_t slot, uint32_t instance,
                                         const lum_slot_props *props);

/* Closes an instance of a slot. */
void lum_slot_properties_deinit(uint32_t slot, uint32_t instance);

/* Fills free entries of an instance from `records`; records without a free entry are dropped. */
void lum_port_properties_init(uint32_t slot, uint32_t instance, uint16_t count,
                              const lum_port_props *records);

/* Empties every entry with the port index and takes each off the count, entries that are free (of
 * index 0, or their last one) too. */
void lum_port_properties_deinit(uint32_t slot, uint32_t instance, uint16_t port_index);

/* Returns the count of filled entries, its low 16 bits. */
uint16_t lum_plat_num_port_info(uint32_t slot, uint32_t instance);

/* Returns the port index of an entry, 0 when there is none. */
uint16_t lum_plat_port_idx(uint32_t slot, uint32_t instance, uint16_t entry);

/* Returns the port handle of a port index, cut to 16 bits; 0 when there is none. */
uint16_t lum_plat_get_port_handle(uint32_t slot, uint32_t instance, uint16_t port_index);

/* Gives the entry of a port handle a new context cell holding `value`. */
void lum_plat_set_sdev_ctx(uint32_t slot, uint32_t instance, uint32_t port_handle, uint32_t value);

/* Returns the context cell of a port handle, or null. The library owns it and frees it with the
 * port's removal, on the interface manager's thread. A cell that was replaced, or whose instance
 * was closed or opened again, is never freed. */
uint32_t *lum_plat_get_sdev_ctx(uint32_t slot, uint32_t instance, uint32_t port_handle);

/* Count the controllers of the ports in the database, two a port; taking away stops at 0. */
void lum_inc_ots_cntrs(uint32_t n);
void lum_dec_ots_cntrs(uint32_t n);
uint32_t lum_num_ots_ctrls(void);

/* Return 1 when any instance, or instance 0, of the slot is used. */
uint32_t lum_plat_is_slot_used(uint32_t slot);
uint32_t lum_plat_is_instance_used(uint32_t slot);

/* Always 1. */
uint32_t lum_plat_is_optics_inserted(int32_t slot, int32_t instance, int32_t port);

/* ------------------------------------------------------------------------------------------------
 * Slots and ports
 */

/* Opens a slot's instance; one that is open loses its entries, its ports stay in the database.
 * Returns 0, also without memory and for a slot that there is not, or 22 for null `props`. Clears
 * the resync marker.
 * Openings and closings of slots, creations and deletions are to be made one at a time. */
cerrno lum_plat_init(uint32_t rack, uint32_t slot, uint32_t instance, const lum_slot_props *props);

/* Closes a slot's instance; its ports stay in the database. Always 0. */
cerrno lum_plat_deinit(uint32_t rack, uint32_t slot, uint32_t instance);

/* Creates `count` (0 to 65535) ports of one slot and instance and asks the interface manager for
 * their controllers. Only the rsip, port_index and port_handle of each entry are read; with a
 * `count` of 0 nothing is, slot and instance being taken as 0. Returns 0, 12, 22 for null
 * `props` with a `count`, or the request's code; none says whether the ports were entered. A port
 * gets the handle 0 when its index is not its port number, or its instance is not open or has no
 * free entry; of two ports with one handle the second is dropped. So is a port that exists already,
 * and those behind it are not entered; one that has no handle yet stays, and a deletion that was
 * asked for is over with it, its mutex made anew. The controllers exist once ctrl_op_notify has
 * told so. Waits for the bus, callbacks and the disk; where the port was deleted just before, also
 * for its deletion's completion to be done with the old record. */
cerrno lum_create_ports(uint32_t count, const lum_port_props *props);

/* Stops the polling of the listed ports, takes and keeps their mutexes, and asks the interface
 * manager to delete their controllers; unknown ports are left out. The ports leave the database
 * when it has answered, whatever its results. Returns 0, 12, 22 when no listed port is known or
 * `ports` is null, or the request's code. After a batch that was refused or is never answered the
 * ports stay, not polled, with their mutexes kept by the calling thread, also beyond its end; a
 * second call sends the batch again and, from the same thread, finds its mutexes taken and lets go
 * of them. While a mutex is kept nothing is polled or written on the port, whatever is inserted or
 * replayed; whoever waits for it comes back. Do not
 * delete a port whose interface handles are still 0: the first port with such a handle would be
 * named instead. Waits for a transfer in progress on each port, and for callbacks. */
cerrno lum_delete_ports(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                        const uint32_t *ports);

/* Sends a new controller state, sets the LED to LUM_LED_FAULT and, for a non-zero `state`, writes
 * every setting ever changed into the module again. Returns 0, or 22 when the port is unknown.
 * Waits for callbacks; for a non-zero `state` it takes the port's mutex and waits for the bus. */
cerrno lum_update_port(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t port,
                       uint32_t state);

/* Sends one create batch for the controllers of every port again, with the resync marker set, and
 * clears every port's readings. Their number is added to controller_count once more. Also the way
 * out when a creation has failed: see imca_completion. Returns 0, also with no port, 12, or the
 * request's code. Waits for a callback. */
cerrno lum_replay_controllers(void);

/* Asks the entity agent for a replay and clears the resync marker. */
void lum_resync_with_ea(void);

/* Does nothing. */
void lum_change_rp_role(void);

/* Take and release the serial lock that brackets the lum_safely_ queries. `line` is ignored, `name`
 * names the caller in a failure's trace. A failure is traced, not returned. */
void lum_serial_lock(uint32_t line, const char *name);
void lum_serial_unlock(uint32_t line, const char *name);

/* Records the interface handles of controllers that the client created itself: `count` handles and
 * names of LUM_IFNAME_SIZE bytes. Returns 22 when an array is null, 0 when `count` is below 1, else
 * the last one's code (lum_update_ifhandle). */
cerrno lum_set_controller_ready_info(int32_t count, const uint32_t *ifhandles,
                                     const char (*names)[LUM_IFNAME_SIZE]);

/* Adds the ports to the database and gives them their handles and mutexes. Called by
 * lum_create_ports; the result means nothing. */
cerrno lum_add_device_to_ports_db(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                                  const uint32_t *ports, const uint32_t *port_handles);

/* Removes the nodes of the first `count` entries of an instance. */
void lum_del_device_from_ports_db(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count);

/* ------------------------------------------------------------------------------------------------
 * Queries under the serial lock, which they wait for. Not to be called while holding it.
 */

/* As lum_get_port_info. */
cerrno lum_safely_get_port_info(const char *ifname, lum_port_data **out);

/* Writes the interface handle of sub-port 0 or 1, 0 when it is not created yet. Returns 0, or 22,
 * the output then being untouched. */
cerrno lum_safely_get_ifhandle(uint32_t port_handle, uint32_t sub_port, uint32_t *ifhandle);

/* Copies the device id of sub-port 0 or 1. Returns 0, or 22, the output then being cleared. */
cerrno lum_safely_get_devinfo(uint32_t port_handle, uint32_t sub_port, lum_device_id_td *out);

/* Writes the rsip of a port handle. Returns 0 or 0xFFFFFFFF. */
cerrno lum_safely_get_rsip(uint32_t port_handle, uint32_t *rsip);

/* ------------------------------------------------------------------------------------------------
 * Controllers
 */

/* Fills in a new controller's attribute block; existing presence bits are kept. Sub-port 1 has a
 * profile of its own, every other number that of sub-port 0. */
void lum_init_controller_capabilities(lum_controller_attrs *attrs, int32_t sub_port);

/* Clears an attribute block, and copies what is sent of one into another. */
void lum_controller_attrs_clear(lum_controller_attrs *attrs);
void lum_controller_attrs_copy(const lum_controller_attrs *source,
                               lum_controller_attrs *destination);

/* Send one batch. `names` and `types` hold `request->count` elements; only the first type is sent.
 * Return 0, 12, 22 for a null argument or array that is needed, a count below 1 or, of a deletion,
 * an unknown handle, or the interface manager's code. After 0 the request belongs to the completion
 * (or to nobody when the callback is null), after a failure to the caller. Wait for a callback. */
cerrno lum_controllers_create(lum_controller_create_request *request, const char *const *names,
                              const uint16_t *types);
cerrno lum_controllers_update(lum_controller_update_request *request);
cerrno lum_controllers_delete(lum_controller_delete_request *request, const uint16_t *types);

/* Copies the name that belongs to an interface handle to `name` (LUM_DEVID_NAME_SIZE bytes).
 * Returns 0, or 22 when no port has it. */
cerrno lum_get_ifname_from_ctx(uint32_t ifhandle, char *name);

/* Completions given to the interface manager; they run on its thread; null arguments are traced
 * only. A create reply whose successful element cannot be decoded ends the process; its first
 * failed one ends the batch (imca_completion). Replies to updates and deletions are not looked at.
 * Wait for callbacks; creation also for the bus and the disk, when it has to be made again,
 * deletion for the disk. */
void lum_im_create_complete_resp_cb(imca_reply_info_type *reply, void *context);
void lum_im_update_complete_resp_cb(imca_reply_info_type *reply, void *context);
void lum_im_delete_complete_resp_cb(imca_reply_info_type *reply, void *context);

/* Bring the ports database up to date with a finished batch, tell the client, and free the request
 * and its arrays (of an update request, its handles only). A create request without entries is left
 * alone; null is traced only. Wait for callbacks; a port's last deletion also for the disk. */
void lum_controller_create_done(lum_controller_create_request *request);
void lum_controller_update_done(lum_controller_update_request *request);
void lum_controller_delete_done(lum_controller_delete_request *request);

/* Records the interface handle of one controller. Returns 0, 22 when the port is unknown or the
 * sub-port above 1, or the name parser's code. */
cerrno lum_update_ifhandle(const char *ifname, uint32_t ifhandle);

/* Build and send the batch of the listed ports, one port, or every port. Return 0, 12, or the
 * request's code (lum_controllers_...); a creation that finds no port 0. Wait for a callback;
 * creation also for the bus and the disk, as lum_chkpt_create. */
cerrno lum_ots_controllers_create(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                                  const uint32_t *ports);
cerrno lum_ots_controllers_update(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t port,
                                  uint32_t state);
cerrno lum_ots_controllers_delete(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                                  const uint32_t *ports);
cerrno lum_replay_ots_controllers(void);

/* ------------------------------------------------------------------------------------------------
 * Modules
 */

/* Reads `length` bytes of a module's memory into `buffer`, or writes its first byte when
 * `direction` is 0. The rack is 0: ports of another rack are not found. Returns 0, also for a
 * `length` below 1; 22 when the port is unknown, 2 when its module is taken for removed, 12, or the
 * last attempt's code, `buffer` then holding what that left. Waits for the bus. Callers that need a
 * consistent module hold the port's mutex. */
cerrno lum_i2c_read_write(uint32_t direction, uint32_t slot, uint32_t instance, uint32_t port,
                          uint32_t page, uint32_t offset, int32_t length, uint8_t *buffer);

/* To be told of each insertion and removal: reads the identity of a module just inserted
 * (`inserted` non-zero), what cannot be read becoming zeros, or wipes that of one removed, sets the
 * LED to LUM_LED_FAULT and ends its polling. Returns 0, or 22 when the port is unknown. An
 * insertion waits for the bus, a removal for a callback. */
cerrno lum_update_vendor_info(uint32_t rsip, int32_t inserted);

/* Sets and reads a port's LED; `ignored` is ignored. Set returns the callback's code, or 22
 * when the port is unknown; get returns 0, or 22 when the callback fails and the port is unknown.
 * Wait for the callback. */
cerrno lum_optics_led_set_state(uint32_t rsip, uint32_t ignored, uint32_t state);
cerrno lum_optics_led_get_state(uint32_t rsip, uint32_t ignored, uint32_t *state);

/* Merges two LED states. Two different states, neither 0 nor 1, leave `*result` as it was. */
void lum_get_final_sw_led_state(uint32_t first, uint32_t second, uint32_t *result);

/* Asks the fw_upgrade_status callback, waits for it and returns its result. */
cerrno lum_optics_get_fw_upgrd_status(uint32_t rsip, uint32_t *status);

/* ------------------------------------------------------------------------------------------------
 * Configuration and hardware information
 */

/* Takes over the fields of `records` that `changed_bits` name, one of each per interface handle,
 * writes them into the modules and saves them. An unknown handle ends the call there. Returns the
 * last save's result, whether the modules took the settings or not, or 22 when nothing was saved:
 * an array is null, `count` is below 1, or the first handle is unknown. Takes each port's mutex.
 * Waits for the bus, and for the disk as lum_chkpt_save. */
cerrno lum_set_hw_info(int32_t count, const uint32_t *ifhandles, const lum_hw_info_in *records,
                       const uint64_t *changed_bits);
cerrno lum_set_hw_info_by_ifh(int32_t count, const uint32_t *ifhandles,
                              const lum_hw_info_in *records, const uint64_t *changed_bits);

/* Fills one record per interface handle, from what the polling thread has stored. Fields without a
 * meaning here stay as the caller set them. Returns the last LED read's result, or 22 for a null
 * array, a `count` below 1, or at the first unknown handle. Waits for a callback. */
cerrno lum_get_hw_info(int32_t count, const uint32_t *ifhandles, lum_hw_info_out *records);
cerrno lum_get_hw_info_by_ifh(int32_t count, const uint32_t *ifhandles, lum_hw_info_out *records);

/* Writes the settings named by `changed_bits` into the module, unless a deletion keeps the port's
 * mutex. `sub_port` is 0 or 1. Returns 0, 22
 * for another sub-port or null, or the trace's result when the mutex cannot be released. Takes the
 * port's mutex. Waits for the bus. */
cerrno lum_provision_port_cfg_data(uint32_t sub_port, lum_port_data *data, uint64_t changed_bits);

/* Calls lum_module_sweep_hw_status for each listed port at its creation. Returns the last result.
 */
cerrno lum_fill_initial_hw_info(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                                const uint32_t *ports);

/* Traces the port as found at a restart (`restart` non-zero) or a cold start; does no more. Returns
 * 0, or 22 when its handle cannot be looked up. */
cerrno lum_module_sweep_hw_status(uint32_t restart, uint32_t rack, uint32_t slot, uint32_t instance,
                                  uint32_t port);

/* Initialiser of the "PD Module". Arguments ignored; always 0. */
cerrno lum_platform_init(event_manager evm, uint32_t restart);

/* Hooks that only trace the ports. lum_deinit_port returns the last trace's result. */
void lum_module_unavailable(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                            const uint32_t *ports);
cerrno lum_deinit_port(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                       const uint32_t *ports);

/* Always 0. */
cerrno lum_module_get_hw_status(void);

/* ------------------------------------------------------------------------------------------------
 * Checkpoints. All wait for the disk; the calls for one port also for each other, and for the
 * completion of a deletion from the moment its port leaves the database until its record is gone. A
 * port that has left the database gets no record any more: creating and saving it succeed and do
 * nothing. A block that never was in the database is treated as any port's.
 */

/* Registers the checkpoint table in the context and writes to `*restart` whether there was one of
 * an earlier process, 1 or 0. Returns 0, 22 for a null pointer, or the service's code. */
cerrno lum_chkpt_init(lum_ctx *context, uint32_t *restart);

/* Creates the port's record, or loads the one of an earlier process into the port. Returns 0 or the
 * service's code. */
cerrno lum_chkpt_create(lum_port_data *data);

/* Saves the port's configuration, creating the record first where there is none. Returns 0, also
 * for null, or the service's code. One save at a time: waits for other ports' too. */
cerrno lum_chkpt_save(lum_port_data *data);

/* Walks and traces the records of an earlier process. Returns 0, 22 for null, or the service's code
 * at the walk's start or end. */
cerrno lum_port_chkpt_recover(lum_ctx *context);

/* Deletes the port's record. Returns 0, 22 for null, or the service's code. */
cerrno lum_port_chkpt_delete(lum_port_data *data);

/* ------------------------------------------------------------------------------------------------
 * Provisioning and the entity-agent server
 */

/* Initialiser of the "SERVER" module: attaches the provisioning handler. Returns 0, or 32 when the
 * manager is 0 or the handler cannot be attached. */
cerrno lum_server_module_init(event_manager evm, uint32_t restart);

/* Asks for a provisioning pass on the event manager's thread. Takes prov_lock. */
void lum_wakeup_provisioning_thread(void);

/* Take and release prov_lock; `line` is the caller's, for a failure's trace. */
void lum_prov_lock(int32_t line);
void lum_prov_unlock(int32_t line);

/* Mark a port. `data` must not be null. */
void lum_mark_provisioning_needed(lum_port_data *data);
void lum_clear_provisioning_needed(lum_port_data *data);
void lum_set_force_reprovisioning(lum_port_data *data);

/* Always 1. */
uint32_t lum_is_config_changed(void);

/* The per-port provisioning step; a hook without behaviour. Always 0. */
cerrno lum_process_provisioning(lum_port_data *data, uint32_t port_handle);

/* Always 0. */
uint32_t lum_check_fpd_upgrade_progress(void);

/* Returns 1 when both controllers of the port are up. */
uint32_t lum_is_ctrlrs_up(const lum_port_data *data);

/* Returns 0 when the port handle is known, else 22. */
cerrno lum_port_update_state(uint32_t port_handle);

/* Replay triggers. Always 0. */
cerrno lum_server_trigger_replay_request_on_connect(void);
cerrno lum_server_trigger_replay_request(void);

/* Serves one entry of an entity-agent batch; `entry` is a request entry as ea_server.h lays it out,
 * `reply` is not used. Always 0. */
cerrno lum_ots_ea_hdlrs(uint32_t operation, const void *entry, void *reply);

/* Hooks without behaviour. Always 0. */
cerrno lum_ots_handle_admin_update(void);
cerrno lum_ots_fill_hw_info(void);

/* ------------------------------------------------------------------------------------------------
 * Performance monitoring and alarm tests
 */

/* Creates (`operation` 1) or deletes (0) the PM and PTAH ports of a controller interface; does
 * nothing when they are as wanted already. Returns the OR of both services' codes. */
cerrno lum_pm_ptah_port_op(uint32_t operation, lum_controller_id controller);

/* Hands the interface's stored readings to PM and its alarms to PTAH. The library never calls it:
 * the driver does, for each interface after each polling cycle. Returns 0, whatever the stores
 * answer, or 22 when the handle is 0 or unknown or the module's firmware is being upgraded. Waits
 * for a callback. */
cerrno lum_update_pm_ptah_data(uint32_t ifhandle);

/* Does nothing. */
void lum_delete_pm_ports(void);

/* Clears the PTAH statistics of `count` interfaces. Returns the last result; 22 for a null array or
 * a `count` below 1. */
cerrno lum_lib_clear_stats(int32_t count, const uint32_t *ifhandles);

/* Installs and removes the alarm test handler under test_string[suite] (0 to 3). `client` is
 * ignored. Init returns 0, whatever the framework answers, or 22 for a suite out of range. */
cerrno lum_pm_alarm_test_init(uint64_t client, uint32_t suite);
void lum_pm_alarm_test_cleanup(uint32_t suite);

/* The alarm test handler. `text` is <anything>#<interface>#<test>#<alarm>#<status>, the last three
 * in hexadecimal; the interface has at most 63 characters. A text that names no port changes
 * nothing. `context` is ignored. */
void lum_ots_test_alarms_pm(void *context, const char *text);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif
#endif
