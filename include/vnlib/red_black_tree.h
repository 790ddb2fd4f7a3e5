/*
 * red_black_tree.h - a map from 64-bit keys to the caller's data, and plain search trees.
 *
 * A tree handle is a pointer to a record that holds the root; a null handle is an empty tree. Every
 * changing call returns the handle anew, and callers replace theirs with it:
 *
 *     struct rb_node *tree = NULL;
 *     tree = rb_create_node(tree, low, high, data);      the first one makes the record
 *     tree = rb_delete_node(tree, low, high);            the last one releases it: null again
 *
 * Keys are unsigned, unique, and handed over as two 32-bit halves. Data is the caller's and never
 * released by the tree; null counts as "no data" for rb_search_tree() and the walks.
 * Cost: one malloc() per node (24 bytes on 32 bits, 40 on 64 bits); inserting, deleting and
 * searching take a number of steps logarithmic in the number of nodes. Nothing here recurses.
 * Threads: trees hold no lock. Callers that share a tree serialise the calls that change it against
 * all others; searching, counting and listing may overlap each other (one exception: see
 * rb_count_nodes()).
 */
#ifndef VNLIB_RED_BLACK_TREE_H
#define VNLIB_RED_BLACK_TREE_H

#include <pthread.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

/* A node, and also the record behind a handle, whose link[0] is the root (all else being zero). */
struct rb_node {
    uint32_t key_low;
    uint32_t key_high;
    void *data;
    struct rb_node *link[2]; /* left: smaller keys; right: greater keys */
    uint32_t colour;         /* 1 red, 0 black */
};

/* --- the map -------------------------------------------------------------------------------- */

/*
 * Adds a key with its data to `tree` (null: to a new tree). A key that is there already keeps its
 * first data. Returns the handle. When memory runs out errno is ENOMEM and the result is `tree`
 * with nothing added, so null for a new tree.
 *
 * The tree is rebalanced on the way down, in one pass, as described by L. J. Guibas and
 * R. Sedgewick, "A dichromatic framework for balanced trees" (1978).
 */
VN_API struct rb_node *rb_create_node(struct rb_node *tree, uint32_t key_low, uint32_t key_high,
                                      void *data);

/*
 * Removes a key; its data is the caller's to release. Returns the handle, or null when the tree is
 * empty now (the record is released). A key that is not there changes nothing that callers see. A
 * null or empty tree gives null with errno ENOENT.
 *
 * Rebalances on the way down like rb_create_node(). Data may move from one node to another: do not
 * keep pointers to nodes across this call.
 */
VN_API struct rb_node *rb_delete_node(struct rb_node *tree, uint32_t key_low, uint32_t key_high);

/*
 * The data of a key; null with errno ENOENT when the key is not there, its data is null or the tree
 * is null.
 */
VN_API void *rb_search_tree(struct rb_node *tree, uint32_t key_low, uint32_t key_high);

/*
 * The number of nodes; 0 for a null tree.
 *
 * Counting and listing keep the path to the current node in memory: on the stack for every
 * red-black tree, on the heap for deeper ones (the generic_* functions can make a tree as deep as
 * it has nodes). Only if that heap memory cannot be had are links of the tree turned around during
 * the call and restored; such a tree must not be read by others meanwhile.
 */
VN_API unsigned rb_count_nodes(struct rb_node *tree);

/*
 * Lists the data of all nodes in post-order: a node comes after its left and its right subtree.
 * Writes at most capacity + 1 entries: callers pass the last index of `data`, not its size. Returns
 * the number written. A null `data` is logged at level 3 ("assert data != ((void *)0)
 * red_black_tree:<line>") and gives 0.
 */
VN_API unsigned rb_get_node_list_data(struct rb_node *tree, void **data, unsigned capacity);

/* The same for keys, the high half in the upper 32 bits. */
VN_API unsigned rb_get_node_list(struct rb_node *tree, uint64_t *keys, unsigned capacity);

/* Called for a key and its data. `tree` is the address given to work_treenode_locked(). */
typedef int (*rb_work_fn)(struct rb_node **tree, void *data, void *arg, uint32_t key_low,
                          uint32_t key_high);

/*
 * Calls work(tree, data, arg, key_low, key_high) for every node with data, in post-order. The nodes
 * are those of a snapshot, taken while `mutex` (null for none) is held; `work` runs after it has
 * been released, so it may take the mutex itself and change the tree. Returns all results combined
 * with |; 0 for a null or empty tree, and with errno ENOMEM when there is no memory for the
 * snapshot, or with the error of locking the mutex.
 */
VN_API int work_treenode_locked(struct rb_node **tree, rb_work_fn work, void *arg,
                                pthread_mutex_t *mutex);

/*
 * Empties and releases *tree, which is null afterwards, and calls release(data) (unless `release`
 * is null) for all data but null, in post-order, each before its node is deleted. Returns 0. When
 * there is no memory for the snapshot that gives the order, the data comes in another order.
 */
VN_API int rb_destroy_tree(struct rb_node **tree, void (*release)(void *data));

/* --- plain search trees --------------------------------------------------------------------- */

/*
 * Trees of the same nodes that are not balanced: a root link of the caller's, nodes of the caller's
 * (nothing is allocated or released here), colours ignored, keys as often as wanted. A "link" is
 * the root link or one of a node's two. Null pointers are refused: null or no effect.
 */

/* The link that holds the node with this key, the one nearest to the root; null when none does. */
VN_API struct rb_node **generic_find_node(struct rb_node **root, uint32_t key_low,
                                          uint32_t key_high);

/* Adds `node` as a leaf, its links overwritten with null; left of nodes with an equal key. */
VN_API void generic_insert_node(struct rb_node **root, struct rb_node *node);

/*
 * Takes the node that *link holds out of the tree; the node itself is left as it is. Its only child
 * takes its place or, if it has two, the rightmost node of its left subtree.
 */
VN_API void generic_remove_node(struct rb_node **link);

/* The right child of the node that *link holds takes its place and has it as left child. */
VN_API void generic_rotate_tree_left(struct rb_node **link);

/* The left child of the node that *link holds takes its place and has it as right child. */
VN_API void generic_rotate_tree_right(struct rb_node **link);

VN_END_DECLS

#endif
