#include "support/fault_alloc.h"

#include <cerrno>

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *ptr, size_t size);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *ptr, size_t size);
}

namespace {

struct Plan {
    bool armed = false;
    size_t first = 0, count = 0, seen = 0, failed = 0;
};
thread_local Plan plan;
thread_local size_t made = 0;

bool must_fail()
{
    ++made;
    if (!plan.armed) return false;
    ++plan.seen;
    if (plan.seen < plan.first || plan.seen - plan.first >= plan.count) return false;
    ++plan.failed;
    errno = ENOMEM;
    return true;
}

} // namespace

namespace fault {

FailAllocations::FailAllocations(size_t first, size_t count)
{
    plan = {true, first, count, 0, 0};
}
FailAllocations::~FailAllocations()
{
    plan.armed = false;
}
size_t FailAllocations::seen() const
{
    return plan.seen;
}
size_t FailAllocations::failed() const
{
    return plan.failed;
}
size_t allocations_made()
{
    return made;
}

} // namespace fault

void *__wrap_malloc(size_t size)
{
    return must_fail() ? nullptr : __real_malloc(size);
}
void *__wrap_calloc(size_t count, size_t size)
{
    return must_fail() ? nullptr : __real_calloc(count, size);
}
void *__wrap_realloc(void *ptr, size_t size)
{
    return must_fail() ? nullptr : __real_realloc(ptr, size);
}
