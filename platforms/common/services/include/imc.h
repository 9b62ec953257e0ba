/* Interface names and node identifiers. */
#ifndef IMC_H
#define IMC_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What a name such as Ots0_3_0_7_1 says. */
typedef struct imc_ifname_info {
  char type[32];           /* the letters in front of the numbers, for example Ots */
  uint32_t rack;           /* plain number; also given to nodeid_extract_slot_fields */
  uint32_t slot;           /* as given to nodeid_extract_slot_fields */
  uint32_t instance;       /* as given to nodeid_inst_to_SPAid */
  uint32_t port;           /* plain number */
  uint32_t sub_port_valid; /* 1 when the name carries a sub-port */
  uint32_t sub_port;       /* plain number */
} imc_ifname_info;

/* All calls may come from any threads, also with locks of liblum held. They wait for nothing and
 * must not call back. */

/* Parses the NUL-terminated `ifname` into `*info`, which the caller has zero-filled; `flags` is 0.
 * Returns 0, or a code with errno set, for a null or malformed name. */
cerrno imc_ifname_parse(const char *ifname, uint32_t flags, imc_ifname_info *info);

/* Turns the parser's rack and slot fields into numbers: `*rack_out`, which liblum does not use, and
 * `*slot_out`. Returns 0, or a code with errno set. */
cerrno nodeid_extract_slot_fields(uint32_t rack_field, uint32_t slot_field, uint32_t *rack_out,
                                  uint32_t *slot_out);

/* Turns the parser's instance field into the instance number. */
void nodeid_inst_to_SPAid(uint32_t instance_field, uint32_t *instance_out);

#ifdef __cplusplus
}
#endif
#endif
