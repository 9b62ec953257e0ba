/** @file
 * Interface names and node identifiers. */
#ifndef IMC_H
#define IMC_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup imc Interface names and node identifiers
 * All calls may come from any threads, also with locks of liblum held. They wait for nothing and
 * must not call back.
 * @{ */

/** What a name such as Ots0_3_0_7_1 says. */
typedef struct imc_ifname_info {
  char type[32];           /**< The letters in front of the numbers, for example Ots. */
  uint32_t rack;           /**< Plain number; also given to nodeid_extract_slot_fields(). */
  uint32_t slot;           /**< As given to nodeid_extract_slot_fields(). */
  uint32_t instance;       /**< As given to nodeid_inst_to_SPAid(). */
  uint32_t port;           /**< Plain number. */
  uint32_t sub_port_valid; /**< 1 when the name carries a sub-port. */
  uint32_t sub_port;       /**< Plain number. */
} imc_ifname_info;

/** Parses an interface name.
 * @param ifname  NUL-terminated; may be null, which is refused.
 * @param flags  0.
 * @param[in,out] info  What the name says; the caller has zero-filled it.
 * @return 0, or a code with errno set, for a null or malformed name. */
cerrno imc_ifname_parse(const char *ifname, uint32_t flags, imc_ifname_info *info);

/** Turns the parser's rack and slot fields into numbers.
 * @param rack_field  The parser's rack.
 * @param slot_field  The parser's slot.
 * @param[out] rack_out  The rack, which liblum does not use.
 * @param[out] slot_out  The slot.
 * @return 0, or a code with errno set. */
cerrno nodeid_extract_slot_fields(uint32_t rack_field, uint32_t slot_field, uint32_t *rack_out,
                                  uint32_t *slot_out);

/** Turns the parser's instance field into the instance number.
 * @param instance_field  The parser's instance.
 * @param[out] instance_out  The instance. */
void nodeid_inst_to_SPAid(uint32_t instance_field, uint32_t *instance_out);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
