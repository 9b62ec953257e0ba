/** @file
 * Ordered trees with several indices over the same nodes; the links live in the user's node. */
#ifndef WAVL_H
#define WAVL_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup wavl Trees
 * Ordered trees with several indices over the same nodes; the links live in the user's node.
 * @{ */

#define WAVL_MAX_INDICES 4 /**< Indices a tree may have. */

/** The tree library's part of a node, one per index, side by side at the offset given to wavl_init.
 * Zero-filled by the user before the node's first insertion, never touched by the user after it. A
 * tree library need not use all of it: the Linux platform's uses `state` alone. */
typedef struct wavl_link {
  struct wavl_link *parent; /**< The link above, null at the root. */
  struct wavl_link *left;   /**< The link with smaller keys. */
  struct wavl_link *right;  /**< The link with greater keys. */
  uint64_t state;           /**< Balance, and whether the link is in its tree. */
} wavl_link;

/** Compares the keys of two nodes.
 * @param first  One node.
 * @param second  The other.
 * @return 0 when the first is smaller, 1 when they are equal, 2 when it is greater. */
typedef int (*wavl_comparator)(const void *first, const void *second);

/** The tree record. Zero-filled by the user before wavl_init; a zero-filled tree is not running. */
typedef struct wavl_tree {
  void *implementation; /**< The tree library's own. */
} wavl_tree;

/** Sets the tree up. Called once, under liblum's start-up lock; waits for nothing.
 * @param[in,out] tree  The tree record.
 * @param indices  1 to #WAVL_MAX_INDICES.
 * @param link_offset  Where a node's links start, in bytes.
 * @param ...  One wavl_comparator per index.
 * @return 0, or a code, upon which liblum ends the process. */
cerrno wavl_init(wavl_tree *tree, uint32_t indices, uint32_t link_offset, ...);

/** Tells whether the tree is usable. Any thread; waits for nothing.
 * @param tree  The tree.
 * @return Non-zero when it is. */
int wavl_running(const wavl_tree *tree);

/** @} */

/** @defgroup wavl_nodes Nodes of trees
 * These calls may come from any threads at the same time; each is atomic and waits for nothing but
 * the tree's own lock. They never call back into the user but for the comparator, which runs with
 * that lock held, and wavl_walk()'s callback, which does not.
 *
 * On a tree that is not running they find nothing and change nothing.
 *
 * A node that has been taken out may still be given to wavl_get_next() for as long as its memory
 * lives and its key is unchanged: the answer is then the node that follows that key.
 * @{ */

/** Inserts a node into one index.
 * @param tree  The tree.
 * @param index  The index, from 0.
 * @param node  The node; the user's, who keeps it for as long as it is in.
 * @return Non-zero on success, 0 when the key is there already, the node is in the index already,
 *   there is no memory, or the arguments make no sense. */
int wavl_insert_thread(wavl_tree *tree, uint32_t index, void *node);

/** Takes a node out of one index.
 * @param tree  The tree.
 * @param index  The index, from 0.
 * @param node  The node.
 * @return Non-zero on success, 0 when it was not in it. */
int wavl_delete_thread(wavl_tree *tree, uint32_t index, void *node);

/** Takes a node out of every index it is in.
 * @param tree  The tree.
 * @param node  The node.
 * @return Non-zero when it was in any. */
int wavl_delete(wavl_tree *tree, void *node);

/** Looks a node up.
 * @param tree  The tree.
 * @param key_node  A node of which only the index's key counts.
 * @param index  The index, from 0.
 * @return The node with that key, or null. */
void *wavl_search(wavl_tree *tree, const void *key_node, uint32_t index);

/** Visits a node of a walk, without the tree's lock.
 * @param node  The node.
 * @param context  What was given to the walk.
 * @return Non-zero to end the walk. */
typedef int (*wavl_callback)(void *node, void *context);

/** Calls a function for every node of an index in key order, without the tree's lock.
 * @param tree  The tree.
 * @param index  The index, from 0.
 * @param callback  The function; a non-zero result ends the walk.
 * @param context  Handed on.
 * @return Nodes visited. */
uint32_t wavl_walk(wavl_tree *tree, uint32_t index, wavl_callback callback, void *context);

/** Gives the first node of an index.
 * @param tree  The tree.
 * @param index  The index, from 0.
 * @return The node, or null when there is none. */
void *wavl_get_first(wavl_tree *tree, uint32_t index);

/** Gives the node that follows another.
 * @param tree  The tree.
 * @param node  The other; it may have been taken out.
 * @param index  The index, from 0.
 * @return The node, or null at the end. */
void *wavl_get_next(wavl_tree *tree, const void *node, uint32_t index);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
