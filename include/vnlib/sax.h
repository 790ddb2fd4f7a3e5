/*
 * sax.h - a streaming parser for a small, strict subset of XML.
 *
 * The parser reads an open stream and calls back for what it finds: start tags with their
 * attributes, end tags, character data, comments, errors. It keeps no tree and checks no nesting.
 * What is accepted is the table `state_machine`, drawn and put into words in docs/sax.md.
 */
#ifndef VNLIB_SAX_H
#define VNLIB_SAX_H

#include <stdio.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

/*
 * One attribute of a start tag. The records form a list that begins with the attribute written
 * last: `<a x="1" y="2">` gives y, then x. Records and texts belong to the parser and end with the
 * callbacks of their tag. Values are what stands between the quotes; entities in them are not
 * resolved.
 */
typedef struct sax_attribute {
    const char *name;
    const char *value;
    struct sax_attribute *next; /* the attribute written before this one; null ends the list */
} sax_attribute;

/*
 * Whom to call. Any entry may be null: its events are then dropped. Every text is NUL-terminated
 * and valid during the call only; `user` is the last argument of sax_parse_file().
 */
typedef struct sax_callbacks {
    /* A start tag is complete, `<a ...>` or `<a ... />`; attributes may be null. */
    void (*start_element)(const char *name, const struct sax_attribute *attributes, void *user);

    /* An end tag, `</a>`, or the end of `<a />`, for which it follows start_element. */
    void (*end_element)(const char *name, void *user);

    /* Never called; they hold the place of events that the parser does not report. */
    void (*reserved1)(void);
    void (*reserved2)(void);

    /*
     * Character data, `length` bytes: all that stands before a tag, or a part of 256 bytes of it
     * when there is more. The early parts of a comment longer than 256 bytes arrive here as well.
     */
    void (*text)(const char *characters, size_t length, void *user);

    /* The (last part of the) text between `<!--` and `-->`, followed by one dash: " hi -". */
    void (*comment)(const char *comment, void *user);

    /* What is wrong, in one sentence. The parser calls nothing after it and gives up. */
    void (*error)(const char *message, void *user);
} sax_callbacks;

/*
 * One row of the table that drives the parser: in `state`, the character `ch` (0: any character;
 * with `ch_last` not 0: any of `ch` to `ch_last`) leads to the state `next` by way of `action`. The
 * first row that fits is the one that counts. States and actions are numbered as in docs/sax.md.
 */
struct sax_transition {
    uint32_t state;
    signed char ch;
    unsigned char ch_last;
    uint32_t next;
    uint32_t action;
};

/* The whole table, in order; constant. */
VN_API extern const struct sax_transition state_machine[51];

/*
 * Parses `stream` from where it stands to its end and makes the calls that `callbacks` names, with
 * `user` handed through.
 *
 * Returns 0 at the end of the stream, even in the middle of a tag: what is unfinished there
 * (character data without a tag after it included) is not reported. A read error ends the stream.
 * Returns -1 after an error, which `callbacks->error` was told, and which left the stream just
 * behind the offending character; also, with errno EINVAL and without a call, for a null `stream`
 * or `callbacks`.
 *
 * The error texts, and what they are about:
 *  - "Invalid XML Document: Invalid State (<state>: '<character>') on line <line>.": a character
 *    that the state has no row for. The line is the number of line feeds read so far, so the first
 *    line is line 0. A character that is not printable ASCII appears without quotes, in
 *    hexadecimal: 0x09, a NUL as 00.
 *  - "Invalid XML Document": a `>` in character data, `<!-` without a second dash, or `--` in a
 *    comment without a `>` behind it.
 *  - "Unsupported XML Encountered": `<?`.
 *  - "XML identifier exceeded buffer": a name or an attribute's value longer than 256 characters,
 *    or more than 256 characters in the names of all entities together.
 *  - "Out of memory": no memory for the parser or for an attribute.
 *
 * The caller opens, rewinds and closes the stream. It is locked (flockfile) during the call; a
 * callback may read it, from behind the character that caused the call. Different streams may be
 * parsed at the same time. About 1.6 KiB of heap are in use during the call, and a block for each
 * attribute of the tag being read.
 */
VN_API int sax_parse_file(FILE *stream, const sax_callbacks *callbacks, void *user);

VN_END_DECLS

#endif
