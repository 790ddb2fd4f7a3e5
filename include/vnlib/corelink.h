/*
 * corelink.h - the corelink configuration language: trees, queries, merges, XML and text
 *
 * A corelink text such as
 *
 *     count=3,opts={on=true},list=[1,2],flag
 *
 * is held as a tree of tagged nodes under one head. docs/corelink.md describes the language.
 *
 *     head ── root ── sentinel ⇄ count ⇄ opts ⇄ list ⇄ flag ⇄ (back to the sentinel)
 *                                          │       └ sentinel ⇄ 1 ⇄ 2 ⇄
 *                                          └ sentinel ⇄ on ⇄
 *
 * A container (struct or array) points at the sentinel of its child list: a record of the node's
 * layout that holds no value. The list is a ring through `next` and `prev`: the sentinel's `next`
 * is the first child, its `prev` the last, and an empty list is a sentinel linked to itself.
 *
 * Memory: nodes, tags and texts are tracked blocks (see memcheck.h). A node owns its tag and its
 * text, a container its children, a head all that is below its root. Texts given to these calls
 * are always copied. clparse_insert() lets two trees share parts; each of the releasing calls here
 * then gives up its own hold, and whoever is last releases the part, so trees may be released in
 * any order and by different threads. No call needs memory to release a tree, and none recurses:
 * depth costs no stack.
 *
 * Threads: a tree holds no lock. One thread at a time uses it; different trees are independent.
 *
 * Null arguments are answered with the call's failure value unless its description says more.
 */
#ifndef VNLIB_CORELINK_H
#define VNLIB_CORELINK_H

#include "vnlib/base.h"
#include "vnlib/check_lock.h"

VN_BEGIN_DECLS

/* What `type` holds. Every other value is a null node too: a tag without a value. */
enum clparse_type {
    CLPARSE_NULL = 0,
    CLPARSE_STRING = 1,
    CLPARSE_NUMBER = 2,
    CLPARSE_BOOLEAN = 3,
    CLPARSE_STRUCT = 4,
    CLPARSE_ARRAY = 5,
    CLPARSE_FUNCTION = 6
};

struct clparse_node;

/*
 * The callbacks of a function node, called with the node and its private pointer.
 *
 * The resolve callback returns the node to use in place of the function node: of any other type,
 * and valid until the release callback is called with the same two arguments. The release callback
 * returns 0, or another value to report that it failed.
 */
typedef struct clparse_node *(*clparse_resolve_fn)(struct clparse_node *node, void *priv);
typedef int (*clparse_release_fn)(struct clparse_node *node, void *priv);

/* A node of any kind, and also a sentinel, which uses `ref`, `next` and `prev` alone. */
struct clparse_node {
    char *tag;     /* the name; null for an array's element read from text */
    uint32_t type; /* an enum clparse_type */
    union {
        char *text;                    /* string; null when there is none */
        uint64_t number;               /* number */
        unsigned char boolean;         /* boolean */
        struct clparse_node *children; /* struct and array: the sentinel */
        struct {
            clparse_resolve_fn resolve;
            void *second; /* kept for the caller, never called */
            clparse_release_fn release;
            void *priv;
        } function;
    } value;
    struct vn_reference ref;     /* prepared with no callback; free for the caller's use */
    struct clparse_node *parent; /* the container that holds the node */
    struct clparse_node *next, *prev;
};

/* One tree. */
struct clparse_head {
    void *scanner;               /* the scanner's state after clparse_start(), otherwise null */
    struct clparse_node root;    /* a struct with the tag "head" */
    struct clparse_node *cursor; /* the node being filled while a text is parsed, otherwise null */
};

/*
 * Reads a corelink text, a NUL-terminated text of at most INT_MAX - 2 bytes, into a new tree.
 *
 * Returns the head, to be ended with clparse_stop(). Returns null when the text is not valid
 * (reported with memdbg_printf(): what is wrong, the enclosing container's tag, the result of the
 * parser), when it nests deeper than the parser's stack of 10,000 symbols, or when memory is short;
 * nothing of a failed parse stays behind. Takes time linear in the text's length.
 *
 * Any number of threads may parse at once.
 */
VN_API struct clparse_head *clparse_start(const char *text);

/*
 * Makes a head without children and stores it in *out. Returns 0, or -1 with *out null when memory
 * is short. End it with clparse_stop().
 */
VN_API int clparse_init_head(struct clparse_head **out);

/* Releases a tree: every node below the root, the scanner and the head. Null is allowed. */
VN_API void clparse_stop(struct clparse_head *head);

/* The root of a tree; it lives as long as its head. */
VN_API struct clparse_node *clparse_get_head(struct clparse_head *head);

/*
 * Each of these makes one node, without a parent and in no list, and returns it; null when the tag
 * is null or memory is short. The caller owns the node until it is appended to a container; alone
 * it is released with clparse_delete_node().
 *
 * A string needs a text. Of a boolean's flag the low 8 bits are kept. A function node never owns
 * `priv` as long as its tree is released with clparse_stop(), but see clparse_remove_child().
 */
VN_API struct clparse_node *clparse_create_string_node(const char *tag, const char *text);
VN_API struct clparse_node *clparse_create_number_node(const char *tag, uint64_t value);
VN_API struct clparse_node *clparse_create_boolean_node(const char *tag, int flag);
VN_API struct clparse_node *clparse_create_struct_node(const char *tag);
VN_API struct clparse_node *clparse_create_array_node(const char *tag);
VN_API struct clparse_node *clparse_create_function_node(const char *tag,
                                                         clparse_resolve_fn resolve, void *second,
                                                         clparse_release_fn release, void *priv);

/*
 * Makes `child`, which must be in no list, the last child of `parent`, which owns it from then on.
 *
 * Returns 0. Returns -1 with errno EINVAL when an argument is null (or both are the same node), and
 * with ENOTDIR when `parent` is neither a struct nor an array; both nodes are then unchanged.
 */
VN_API int clparse_append_child(struct clparse_node *parent, struct clparse_node *child);

/*
 * Takes the first child out of a struct or array and returns it; it is the caller's now. Its
 * `parent` still names the container, its links lead to itself. Null for any other node and for an
 * empty container. Called again and again it empties the container in order.
 */
VN_API struct clparse_node *clparse_get_child(struct clparse_node *node);

/*
 * Takes `node` out of its parent's list, if it is in one, and releases it: the record, the tag, a
 * string's text, a container's sentinel, and a function node's private pointer, which must then be
 * null or a tracked block. A container's children are not released: they are left to whoever holds
 * them, in no list and without a parent. For a whole subtree use clparse_delete_node().
 *
 * Returns 0, or -1 with errno EINVAL when `node` is null.
 */
VN_API int clparse_remove_child(struct clparse_node *node);

/*
 * Releases `node` and everything below it as clparse_remove_child() does it for each single node.
 * Children that another tree shares stay with that tree.
 *
 * Returns 0, or -1 with errno EINVAL when `node` is null.
 */
VN_API int clparse_delete_node(struct clparse_node *node);

/* The type code; 0 for null. */
VN_API uint32_t clparse_get_node_type(const struct clparse_node *node);

/*
 * The node's tag and a function node's private pointer, neither of them a copy; the type is not
 * looked at. A null node is reported on the log (level 3, "assert ...") and answered with null.
 */
VN_API char *clparse_get_node_tag(const struct clparse_node *node);
VN_API void *clparse_get_func_priv(const struct clparse_node *node);

/*
 * The value of a node of the right type: a string's text (not a copy, null when absent), the low 32
 * bits of a number, a boolean's byte. A node of another type gives null, 0xFFFFFFFF and 0. The
 * whole number is read with clparse_get_number(). None of them sets errno.
 */
VN_API char *clparse_get_node_value_s(const struct clparse_node *node);
VN_API uint32_t clparse_get_node_value_n(const struct clparse_node *node);
VN_API unsigned char clparse_get_node_value_b(const struct clparse_node *node);

/*
 * Change the value of a node of the right type and return 0; -1, without errno, for another type.
 *
 * A text is copied, the old one released; a null text, and one that cannot be copied, leave the
 * string without a text. A number is given with 32 bits and widened with its sign: -1 sets all 64
 * bits. Of a flag the low 8 bits are kept.
 */
VN_API int clparse_set_node_value_s(struct clparse_node *node, const char *text);
VN_API int clparse_set_node_value_n(struct clparse_node *node, int32_t value);
VN_API int clparse_set_node_value_b(struct clparse_node *node, int flag);

/* ---- queries, merges and writers ---- */

VN_API struct clparse_node *clparse_get_tagtype(struct clparse_node *container, const char *path,
                                                int type);
VN_API struct clparse_node *clparse_get_node(struct clparse_head *head, const char *path);
VN_API int clparse_get_type(struct clparse_head *head, const char *format, ...) VN_PRINTF(2, 3);
VN_API int clparse_get_tag(struct clparse_head *head, char **tag, const char *format, ...)
    VN_PRINTF(3, 4);
VN_API int clparse_get_bool(struct clparse_head *head, unsigned char *value, const char *format,
                            ...) VN_PRINTF(3, 4);
VN_API int clparse_get_number(struct clparse_head *head, uint64_t *value, const char *format, ...)
    VN_PRINTF(3, 4);
VN_API int clparse_get_string(struct clparse_head *head, char **value, const char *format, ...)
    VN_PRINTF(3, 4);
VN_API char *clparse_get_path(struct clparse_head *head, const char *path);
VN_API int cl_cat_array_element(char **text, size_t capacity, const char *format, ...)
    VN_PRINTF(3, 4);

VN_API int clparse_select(struct clparse_head *target, struct clparse_head *source);
VN_API int clparse_update(struct clparse_head *target, struct clparse_head *source);
VN_API int clparse_insert(struct clparse_head *target, struct clparse_head *source);

VN_API int clparse_get_xml(struct clparse_head *head, char **xml, unsigned char pretty);
VN_API int clparse_get_corelink(struct clparse_head *head, char **text, unsigned char path_mode);

VN_END_DECLS

#endif
