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

/*
 * ---- Reading values by path ----
 *
 * A path names one child a step, separated by dots: "servers.0.port". A step that begins with a
 * decimal digit is a position: its leading digits count the children from 0, in structs as well as
 * in arrays, whatever their tags ("3.name"; "3abc" is 3). Any other step is a tag, compared byte
 * for byte. There is no escape: a tag that holds a dot or begins with a digit is reached by its
 * position alone, and so is an element without a tag.
 *
 * On the way a step takes the first child that it names; when that is no container, or has not the
 * rest of the path below it, nothing is found, even if a later child of the same name had it. At
 * the end of the path the first child of the wanted type is taken, so of two children with one tag,
 * a string and a number, clparse_get_string() finds the one and clparse_get_number() the other.
 * Function nodes are found as themselves; what they yield is not looked into.
 *
 * A lookup allocates nothing, does not recurse, and takes time linear in the number of children it
 * passes. The calls with a format build the path from it as printf does, in a tracked block charged
 * to the call and released before it returns; they find nothing when that block cannot be had. A
 * format without a percent sign is the path itself: it takes no block while the tracker is off.
 */

/*
 * The node at `path` below a container, of type `type` (an enum clparse_type, or -1 for any), or
 * null. `container` is any struct or array; below another node there is nothing. The result belongs
 * to the tree.
 */
VN_API struct clparse_node *clparse_get_tagtype(struct clparse_node *container, const char *path,
                                                int type);

/* The node of any type at `path` below the root, or null. The result belongs to the tree. */
VN_API struct clparse_node *clparse_get_node(struct clparse_head *head, const char *path);

/* The type (an enum clparse_type) of the node at the path, or -1 when there is none. */
VN_API int clparse_get_type(struct clparse_head *head, const char *format, ...) VN_PRINTF(2, 3);

/*
 * Stores in *tag the tag of the node at the path: the node's own text, not a copy, and null for an
 * element without one. Returns 0, or -1 with *tag as it was when there is no such node.
 */
VN_API int clparse_get_tag(struct clparse_head *head, char **tag, const char *format, ...)
    VN_PRINTF(3, 4);

/*
 * Store in *value the byte of the boolean, or all 64 bits of the number, at the path. Return 0, or
 * -1 with *value as it was when there is no node of that type.
 */
VN_API int clparse_get_bool(struct clparse_head *head, unsigned char *value, const char *format,
                            ...) VN_PRINTF(3, 4);
VN_API int clparse_get_number(struct clparse_head *head, uint64_t *value, const char *format, ...)
    VN_PRINTF(3, 4);

/*
 * Stores in *value a copy of the text of the string at the path: a tracked block that the caller
 * releases with vn_memcheck_free() and vn_free. *value is null, and the result still 0, when the
 * string has no text or memory for the copy is short. Returns -1 with *value null when there is no
 * string at the path. `value` may be null: then only the result is given.
 */
VN_API int clparse_get_string(struct clparse_head *head, char **value, const char *format, ...)
    VN_PRINTF(3, 4);

/*
 * Lists what is at `path` (a plain text, no format): the paths of a container's members, each made
 * of `path`, a dot and the member's tag, joined by commas; of any other node its tag. A member
 * without a tag is listed by its position. A function node is listed as the node that it yields,
 * with `path` unchanged; its release callback is called in any case.
 *
 * Returns a tracked block that the caller releases with vn_memcheck_free() and vn_free; the empty
 * text when nothing is at the path; null when memory is short.
 */
VN_API char *clparse_get_path(struct clparse_head *head, const char *path);

/*
 * Adds an element, formatted as printf does, to the text of an array: "[]" becomes "[1]" and then
 * "[1,2]". *text must end in "]", otherwise nothing is changed and the result is -1.
 *
 * With `capacity` 0, *text is a tracked block; it grows and may move. Returns 0, or -1 when memory
 * is short: the text is then gone and *text null.
 *
 * Otherwise *text is a buffer of `capacity` bytes and stays where it is. Returns 0, or -1 when the
 * text with the element and two more bytes does not fit; the text then lacks its closing bracket
 * ("[1]" is left as "[1,"). No terminator is written behind the new bracket: beyond its text the
 * buffer must hold zeros.
 */
VN_API int cl_cat_array_element(char **text, size_t capacity, const char *format, ...)
    VN_PRINTF(3, 4);

/*
 * ---- Merging one tree into another ----
 *
 * For each child of the source's root, in order, the children of the target's root are tried from
 * the first. Tags must be equal; two absent tags are. Two containers match, a struct and an array
 * as well: the source container's children are then merged into the target container in the same
 * way. A source leaf matches any target node: that node takes the leaf's type and a copy of its
 * value (no text, when it cannot be copied), and the children of a container that becomes a leaf
 * are released. A source container matches no leaf. The first match ends the search.
 *
 * A source node without a match
 *   clparse_select  is skipped: the target says what is wanted and is filled from the source;
 *   clparse_update  ends the merge with -1;
 *   clparse_insert  is appended to the target, as a new node with a copy of its text. The new node
 *                   shares its tag and its children with the source node: a change below it shows
 *                   in both trees, and both are released as usual, in any order.
 *
 * Function nodes stand for the node that they yield, on both sides. Each resolve call is followed
 * by the release call once the result has served; the merge ends with -1 when a release callback
 * reports a failure. Results still in use when a merge ends early are released, the innermost
 * first. A source function node that yields nothing is passed over (its release callback is called
 * all the same). A target one, whose release callback is not called then, and a null link in a
 * target list are reported on the log (level 3) and end the search without a match.
 *
 * All three return 0, or -1 as above and when memory is short, the target's root has no child list,
 * or an insert would put a list of children below itself; what was merged by then stays. Source and
 * target may be the same tree (what it appends to itself is not merged again) and may share parts.
 * Time is linear in both trees, as long as no level of a thousand children or more holds function
 * nodes. Nothing recurses.
 */
VN_API int clparse_select(struct clparse_head *target, struct clparse_head *source);
VN_API int clparse_update(struct clparse_head *target, struct clparse_head *source);
VN_API int clparse_insert(struct clparse_head *target, struct clparse_head *source);

/*
 * ---- Writing ----
 *
 * Both writers give a tracked block of exactly the text's length and its terminator, which the
 * caller releases with vn_memcheck_free() and vn_free. They take time linear in the text, and they
 * do not recurse. docs/corelink.md shows the forms.
 */

/*
 * Writes the tree as an XML document: indented by tabs and one element a line when `pretty` is not
 * 0, else on one line. Each element's attribute `type` names the kind of node. Strings are escaped
 * (all five entities), tags are not. Function nodes are written as null elements, unresolved.
 *
 * Returns 0, also when the document cannot be written, because memory is short or a string has no
 * text: *xml is then null. Returns -1 only for a null argument.
 */
VN_API int clparse_get_xml(struct clparse_head *head, char **xml, unsigned char pretty);

/*
 * Writes the tree as corelink text: with `path_mode` 0 the compact form that clparse_start() reads,
 * otherwise the path of every leaf, separated by commas. In a path the position stands for a
 * missing tag. Strings are written in quotes, with a backslash put before each quote in them.
 * Function nodes are written as the members of the container that they yield, without a tag or
 * brackets of their own.
 *
 * Stores the text in *text and returns 0; stores null and returns -1 when memory is short or a
 * string has no text.
 */
VN_API int clparse_get_corelink(struct clparse_head *head, char **text, unsigned char path_mode);

VN_END_DECLS

#endif
