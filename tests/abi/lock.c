#define _GNU_SOURCE
#include "printed.h"

static int calls;

static void on_release(void *arg)
{
    CHECK(arg == &calls);
    ++calls;
}

static int lock;

static void take_lock(void)
{
    check_lock_add("file.c", 7, &lock, 1);
}

static void take_lock_nowhere(void)
{
    check_lock_add(NULL, 8, &calls, 1);
}

static void let_lock_go(void)
{
    check_lock_remove(&lock);
}

int main(void)
{
    struct vn_reference reference;

    CHECK(vn_reference_prep(&reference, on_release, &calls) == 0);
    errno = 0;
    CHECK(vn_reference_release(&reference) == -1 && errno == EPERM && calls == 0);
    CHECK(vn_reference_acquire(&reference) == 0 && vn_reference_acquire(&reference) == 0);
    CHECK(vn_reference_release(&reference) == 1 && calls == 0);
    CHECK(vn_reference_release(&reference) == 0 && calls == 1);

    CHECK(check_lock_init() == 0);
    CHECK_TEXT(printed_on(1, take_lock), "");
    CHECK_TEXT(printed_on(1, take_lock), "Multiple references found file.c:7\n");
    CHECK_TEXT(printed_on(1, check_lock_dump), "file.c:7 count=2\n");
    CHECK_TEXT(printed_on(1, let_lock_go), "");
    CHECK_TEXT(printed_on(1, let_lock_go), "Could not find reference to remove\n");
    CHECK_TEXT(printed_on(1, take_lock_nowhere), "");
    CHECK_TEXT(printed_on(1, check_lock_dump), "(null):8 count=1\nfile.c:7 count=1\n");
    check_lock_exit();
    return report("lock");
}
