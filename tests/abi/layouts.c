/*
 * layouts.c - where the fields of the public records stand.
 *
 * Callers reach into these records, so a field that moves breaks every program that was built
 * before. All of it is checked while this file is compiled, on each target with its own compiler.
 * The program itself only looks whether the exported tables have the rows that their headers say.
 */
#include "check.h"

#include <stddef.h>
#include <sys/uio.h>

/* The array would have a negative size. */
#define HOLDS(condition) extern char must_hold[(condition) ? 1 : -1]

/* Offsets and sizes are in bytes: on the 32-bit target, and on 64-bit hosts. */
#define PLACE(on_32, on_64) (sizeof(void *) == 4 ? (on_32) : (on_64))
#define AT(record, field, on_32, on_64) HOLDS(offsetof(record, field) == PLACE(on_32, on_64))
#define SIZE(record, on_32, on_64) HOLDS(sizeof(record) == PLACE(on_32, on_64))
#define WIDTH(record, field, bytes) HOLDS(sizeof(((record *)0)->field) == (bytes))

HOLDS(sizeof(void *) == 4 || sizeof(void *) == 8);
HOLDS(sizeof(size_t) == sizeof(void *));

AT(struct vn_reference, count, 0, 0);
AT(struct vn_reference, lock, 4, 4);
AT(struct vn_reference, release, 8, 8);
AT(struct vn_reference, arg, 12, 16);
SIZE(struct vn_reference, 16, 24);

/* The value is a union of exactly four words on the target. A number in it is aligned to 8 bytes,
 * so that the records end with 4 bytes that nothing uses. */
AT(struct clparse_node, tag, 0, 0);
AT(struct clparse_node, type, 4, 8);
AT(struct clparse_node, value, 8, 16);
AT(struct clparse_node, ref, 24, 48);
AT(struct clparse_node, parent, 40, 72);
AT(struct clparse_node, next, 44, 80);
AT(struct clparse_node, prev, 48, 88);
SIZE(struct clparse_node, 56, 96);
WIDTH(struct clparse_node, type, 4);
WIDTH(struct clparse_node, value, 4 * sizeof(void *));
WIDTH(struct clparse_node, value.text, sizeof(void *));
WIDTH(struct clparse_node, value.number, 8);
WIDTH(struct clparse_node, value.boolean, 1);
WIDTH(struct clparse_node, value.children, sizeof(void *));
AT(struct clparse_node, value.function.resolve, 8, 16);
AT(struct clparse_node, value.function.second, 12, 24);
AT(struct clparse_node, value.function.release, 16, 32);
AT(struct clparse_node, value.function.priv, 20, 40);

AT(struct clparse_head, scanner, 0, 0);
AT(struct clparse_head, root, 8, 8);
AT(struct clparse_head, cursor, 64, 104);
SIZE(struct clparse_head, 72, 112);

HOLDS(sizeof(union clparse_lex_value) == 8);

AT(struct q_element, next, 0, 0);
AT(struct q_element, prev, 4, 8);
AT(struct q_element, data, 8, 16);
SIZE(struct q_element, 12, 24);

AT(struct q_queue, list_count, 0, 0);
AT(struct q_queue, lists, 4, 8);
AT(struct q_queue, release, 8, 16);
AT(struct q_queue, match, 12, 24);
AT(struct q_queue, clean, 16, 32);
AT(struct q_queue, filter, 20, 40);
AT(struct q_queue, slot_count, 24, 48);
AT(struct q_queue, slots, 28, 56);
SIZE(struct q_queue, 28, 56);
WIDTH(struct q_queue, list_count, 4);
WIDTH(struct q_queue, slot_count, 4);

AT(struct rb_node, key_low, 0, 0);
AT(struct rb_node, key_high, 4, 4);
AT(struct rb_node, data, 8, 8);
AT(struct rb_node, link[0], 12, 16);
AT(struct rb_node, link[1], 16, 24);
AT(struct rb_node, colour, 20, 32);
SIZE(struct rb_node, 24, 40);
WIDTH(struct rb_node, colour, 4);

AT(struct list_link, next, 0, 0);
AT(struct list_link, prev, 4, 8);
SIZE(struct list_link, 8, 16);

/* The system's record, of which callers of the vector functions make arrays. */
AT(struct iovec, iov_base, 0, 0);
AT(struct iovec, iov_len, 4, 8);
SIZE(struct iovec, 8, 16);

AT(struct md5_ctx, bits, 0, 0);
AT(struct md5_ctx, state, 8, 8);
AT(struct md5_ctx, block, 24, 24);
SIZE(struct md5_ctx, 88, 88);

AT(struct sha1_ctx, state, 0, 0);
AT(struct sha1_ctx, pending, 20, 20);
AT(struct sha1_ctx, total, 24, 24);
AT(struct sha1_ctx, block, 32, 32);
SIZE(struct sha1_ctx, 96, 96);
WIDTH(struct sha1_ctx, total, 8);

AT(struct sha256_ctx, state, 0, 0);
AT(struct sha256_ctx, bytes, 32, 32);
AT(struct sha256_ctx, pending, 40, 40);
AT(struct sha256_ctx, block, 44, 44);
SIZE(struct sha256_ctx, 108, 108);

AT(struct sax_attribute, name, 0, 0);
AT(struct sax_attribute, value, 4, 8);
AT(struct sax_attribute, next, 8, 16);
SIZE(struct sax_attribute, 12, 24);

AT(struct sax_callbacks, start_element, 0, 0);
AT(struct sax_callbacks, end_element, 4, 8);
AT(struct sax_callbacks, reserved1, 8, 16);
AT(struct sax_callbacks, reserved2, 12, 24);
AT(struct sax_callbacks, text, 16, 32);
AT(struct sax_callbacks, comment, 20, 40);
AT(struct sax_callbacks, error, 24, 48);
SIZE(struct sax_callbacks, 28, 56);

AT(struct sax_transition, state, 0, 0);
AT(struct sax_transition, ch, 4, 4);
AT(struct sax_transition, ch_last, 5, 5);
AT(struct sax_transition, next, 8, 8);
AT(struct sax_transition, action, 12, 12);
SIZE(struct sax_transition, 16, 16);

HOLDS(sizeof state_machine == 51 * sizeof(struct sax_transition));

AT(struct scsi_standard, code, 0, 0);
AT(struct scsi_standard, text, 4, 8);
SIZE(struct scsi_standard, 8, 16);
WIDTH(struct scsi_standard, code, 2);
HOLDS(sizeof standards_list == 316 * sizeof(struct scsi_standard));

int main(void)
{
    CHECK(state_machine[50].state == 15 && state_machine[50].action == 13);
    CHECK(standards_list[315].code == 0x20A0 && standards_list[315].text != NULL);
    return report("layouts");
}
