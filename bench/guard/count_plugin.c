/*
 * count_plugin.c - counts a guest program's instructions for qemu-user, per thread, between the
 * marks of counted.h, and writes each count as a line to the file named by `counts=`.
 *
 *     qemu-arm -plugin count_plugin.so,counts=out guard units
 *
 * Debian ships qemu without the header for plugins, so what is used of it is declared here.
 */
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

typedef uint64_t plugin_id;
struct block;
extern size_t qemu_plugin_tb_n_insns(const struct block *);
extern void qemu_plugin_register_vcpu_tb_trans_cb(plugin_id, void (*)(plugin_id, struct block *));
extern void qemu_plugin_register_vcpu_tb_exec_cb(struct block *, void (*)(unsigned vcpu, void *),
                                                 int flags, void *);
extern void qemu_plugin_register_vcpu_syscall_cb(
    plugin_id, void (*)(plugin_id, unsigned vcpu, int64_t number, uint64_t first, uint64_t,
                        uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t));

#define EXPORT __attribute__((visibility("default")))
EXPORT int qemu_plugin_version = 1;

enum { THREADS = 64, MARK_BEGIN = 0x564E4701, MARK_END = 0x564E4702 };
static uint64_t executed[THREADS], at_begin[THREADS];
static FILE *counts;

static void run(unsigned vcpu, void *instructions)
{
    executed[vcpu % THREADS] += (uintptr_t)instructions;
}

static void translate(plugin_id id, struct block *block)
{
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_cb(block, run, 0,
                                         (void *)(uintptr_t)qemu_plugin_tb_n_insns(block));
}

static void call(plugin_id id, unsigned vcpu, int64_t number, uint64_t first, uint64_t b,
                 uint64_t c, uint64_t d, uint64_t e, uint64_t f, uint64_t g, uint64_t h)
{
    (void)id, (void)number, (void)b, (void)c, (void)d, (void)e, (void)f, (void)g, (void)h;
    if ((uint32_t)first == MARK_BEGIN) at_begin[vcpu % THREADS] = executed[vcpu % THREADS];
    if ((uint32_t)first != MARK_END) return;
    fprintf(counts, "%" PRIu64 "\n", executed[vcpu % THREADS] - at_begin[vcpu % THREADS]);
    fflush(counts);
}

EXPORT int qemu_plugin_install(plugin_id id, const void *info, int argc, char **argv)
{
    (void)info;
    for (int i = 0; i < argc; ++i)
        if (strncmp(argv[i], "counts=", 7) == 0) counts = fopen(argv[i] + 7, "w");
    if (counts == NULL) return -1;
    qemu_plugin_register_vcpu_tb_trans_cb(id, translate);
    qemu_plugin_register_vcpu_syscall_cb(id, call);
    return 0;
}
