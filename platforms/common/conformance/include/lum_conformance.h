/** @file
 * The conformance test for platforms: whoever brings liblum to a platform links it with services
 * and callbacks of their own, and is told what of their contract does not hold. */
#ifndef LUM_CONFORMANCE_H
#define LUM_CONFORMANCE_H

#include <stdint.h>

#include "lum.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup lum_conformance Conformance test
 * A program that calls lum_conformance_main() is the conformance test of the platform that it is
 * linked with.
 * @{ */

#define LUM_CONFORMANCE_NONE 0xFFFFFFFFu /**< The platform has none to test with. */

/** Starts the platform in this process, as its driver does before lum_lib_init(). Its stores may be
 * those of an earlier process of the same test.
 * @param[in,out] params  Zero-filled; the platform fills in `evm` and `platform_cbs`, whose table
 *   stays valid, and what else its driver sets.
 * @return 0; any other number says that the platform cannot be started. */
typedef int (*lum_conformance_start)(lum_infra_params *params);

/** What the test needs to know of the platform. */
typedef struct lum_conformance_platform {
  lum_conformance_start start; /**< Starts the platform; not null. */
  /** A port of rack 0 whose cage holds a module; rsip, port_index and port_handle count. */
  lum_port_props port;
  /** The number of a port in the same slot and instance whose cage is empty, or
   * #LUM_CONFORMANCE_NONE. */
  uint32_t empty_port;
  /** The page of a byte of the module that may hold any value, or #LUM_CONFORMANCE_NONE. The test
   * writes it and writes it back. */
  uint32_t writable_page;
  uint32_t writable_offset; /**< The offset of that byte. */
} lum_conformance_platform;

/** Runs the checks, each in a process of its own: the program is started again for it, with the
 * same arguments, and this call then makes the one check and ends that process. Prints a line for
 * each check to standard output, in the Test Anything Protocol, and behind one that does not hold
 * what was seen; what the platform prints goes to standard error.
 *
 * The platform's stores are to be empty when the test begins. The environment may set
 * `LUM_CONFORMANCE_PATIENCE`, the seconds a check waits for what has to come, 20 unless set.
 * @param count  Names of checks; 0: all checks.
 * @param names  `count` names, each of a check or, up to its dot, of a group; "--list" prints all
 *   instead.
 * @param platform  The platform.
 * @return 0 when every check that applies holds, 1 when one does not, 2 for an unknown name or when
 *   the checks cannot be run: what the program is to exit with. */
int lum_conformance_main(int count, const char *const *names,
                         const lum_conformance_platform *platform);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
