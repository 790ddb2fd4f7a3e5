#include "check.h"

static int calls;

static void on_release(void *arg)
{
    CHECK(arg == &calls);
    ++calls;
}

int main(void)
{
    struct vn_reference reference;
    int lock = 0;

    CHECK(vn_reference_prep(&reference, on_release, &calls) == 0);
    errno = 0;
    CHECK(vn_reference_release(&reference) == -1 && errno == EPERM && calls == 0);
    CHECK(vn_reference_acquire(&reference) == 0 && vn_reference_acquire(&reference) == 0);
    CHECK(vn_reference_release(&reference) == 1 && calls == 0);
    CHECK(vn_reference_release(&reference) == 0 && calls == 1);

    CHECK(check_lock_init() == 0);
    check_lock_add("file.c", 7, &lock, 1);
    check_lock_add("file.c", 7, &lock, 1); /* prints "Multiple references found file.c:7" */
    check_lock_dump();                     /* prints "file.c:7 count=2" */
    check_lock_remove(&lock);
    check_lock_remove(&lock); /* prints "Could not find reference to remove" */
    check_lock_exit();
    return report("lock");
}
