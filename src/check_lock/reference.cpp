// reference.cpp - reference counts that callers embed in their objects.
//
// Who brings the count from 1 to 0 is alone with the object: every other holder has left the lock
// for the last time. So the lock can be destroyed there, and the callback may release the memory
// that the count itself lives in.
#include "vnlib/check_lock.h"

#include <cerrno>

namespace {

int fail(int error)
{
    errno = error;
    return -1;
}

constexpr int kUnderflow = -1;

// Returns how many references are left, or kUnderflow.
int drop_one(vn_reference &ref)
{
    pthread_spin_lock(&ref.lock);
    const int left = ref.count < 1 ? kUnderflow : --ref.count;
    pthread_spin_unlock(&ref.lock);
    return left;
}

} // namespace

extern "C" {

int vn_reference_prep(struct vn_reference *ref, void (*release)(void *), void *arg)
{
    if (ref == nullptr) return fail(EINVAL);
    ref->count = 0;
    ref->release = release;
    ref->arg = arg;
    const int result = pthread_spin_init(&ref->lock, PTHREAD_PROCESS_PRIVATE);
    return result == 0 ? 0 : fail(result);
}

int vn_reference_acquire(struct vn_reference *ref)
{
    if (ref == nullptr) return fail(EINVAL);
    pthread_spin_lock(&ref->lock);
    ++ref->count;
    return pthread_spin_unlock(&ref->lock);
}

int vn_reference_release(struct vn_reference *ref)
{
    if (ref == nullptr) return fail(EINVAL);
    const int left = drop_one(*ref);
    if (left == kUnderflow) return fail(EPERM);
    if (left > 0) return 1;
    errno = pthread_spin_destroy(&ref->lock);
    if (errno != 0) return -1;
    if (ref->release != nullptr) ref->release(ref->arg);
    return 0;
}
}
