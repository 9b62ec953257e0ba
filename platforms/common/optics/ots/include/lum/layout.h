/** @file
 * The check of a record's layout, in C and in C++. */
#ifndef LUM_LAYOUT_H
#define LUM_LAYOUT_H

#include <stddef.h>

/** Refuses to compile where a record is not laid out as the library takes it.
 * @param condition  A constant expression. */
#ifdef __cplusplus
#define LUM_ASSERT_LAYOUT(condition) static_assert(condition, #condition)
#else
#define LUM_ASSERT_LAYOUT(condition) _Static_assert(condition, #condition)
#endif

#endif
