/* Ordered trees with several indices over the same nodes; the links live in the user's node. */
#ifndef WAVL_H
#define WAVL_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

#define WAVL_MAX_INDICES 4

/* The tree library's part of a node, one per index, side by side at the offset given to wavl_init.
 * Zero-filled by the user before the node's first insertion, never touched by the user after it. */
typedef struct wavl_link {
  struct wavl_link *parent;
  struct wavl_link *left;
  struct wavl_link *right;
  uint64_t state; /* balance, and whether the link is in its tree */
} wavl_link;

/* Compares the keys of two nodes: 0 when the first is smaller, 1 when equal, 2 when greater. */
typedef int (*wavl_comparator)(const void *first, const void *second);

/* The tree record. Zero-filled by the user before wavl_init; a zero-filled tree is not running. */
typedef struct wavl_tree {
  void *implementation;
} wavl_tree;

/* Sets the tree up for `indices` indices (1 to WAVL_MAX_INDICES) over nodes whose links start
 * `link_offset` bytes into the node; one wavl_comparator per index follows. Returns 0 or a code,
 * upon which liblum ends the process. Called once, under liblum's start-up lock; waits for nothing.
 */
cerrno wavl_init(wavl_tree *tree, uint32_t indices, uint32_t link_offset, ...);

/* Returns non-zero when the tree is usable. Any thread; waits for nothing. */
int wavl_running(const wavl_tree *tree);

/* The calls below may come from any threads at the same time; each is atomic and waits for nothing
 * but the tree's own lock. They never call back into the user but for the comparator, which runs
 * with that lock held, and wavl_walk's callback, which does not.
 *
 * On a tree that is not running they find nothing and change nothing.
 *
 * A node that has been taken out may still be given to wavl_get_next for as long as its memory
 * lives and its key is unchanged: the answer is then the node that follows that key. */

/* Inserts `node` into one index. Returns non-zero on success, 0 when the key is there already, the
 * node is in the index already, or the arguments make no sense. */
int wavl_insert_thread(wavl_tree *tree, uint32_t index, void *node);

/* Takes `node` out of one index. Returns non-zero on success, 0 when it was not in it. */
int wavl_delete_thread(wavl_tree *tree, uint32_t index, void *node);

/* Takes `node` out of every index it is in. Returns non-zero when it was in any. */
int wavl_delete(wavl_tree *tree, void *node);

/* Returns the node whose key in `index` equals that of `key_node`, or null. */
void *wavl_search(wavl_tree *tree, const void *key_node, uint32_t index);

/* Calls `callback` for every node of `index` in key order, without the tree's lock; a non-zero
 * result ends the walk. Returns the number of nodes visited. */
typedef int (*wavl_callback)(void *node, void *context);
uint32_t wavl_walk(wavl_tree *tree, uint32_t index, wavl_callback callback, void *context);

/* Return the first node of `index`, and the one after `node`; null at the end. */
void *wavl_get_first(wavl_tree *tree, uint32_t index);
void *wavl_get_next(wavl_tree *tree, const void *node, uint32_t index);

#ifdef __cplusplus
}
#endif
#endif
