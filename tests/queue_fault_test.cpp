#include "vnlib/queue.h"

#include "support/fault_alloc.h"

#include <cerrno>

namespace {

int match(void *data, uintptr_t key)
{
    return reinterpret_cast<uintptr_t>(data) == key;
}

int give_up(void *, void *)
{
    return Q_RELEASE_FREE;
}

// The leak checker of the sanitizer builds sees to it that nothing stays behind.
TEST(QueueFault, InitReturnsNullWhenEitherAllocationFails)
{
    const size_t failures = fault::for_each_failing_allocation([] {
        errno = 0;
        q_queue *const queue = q_init(4, 2, match, give_up, nullptr, nullptr);
        if (queue == nullptr) {
            EXPECT_EQ(errno, ENOMEM);
        }
        q_exit(queue, nullptr);
    });
    EXPECT_EQ(failures, 2u);
}

TEST(QueueFault, AddingReturnsNullAndChangesNothingWhenOutOfMemory)
{
    int data = 0;
    q_queue *const queue = q_init(4, 1, match, give_up, nullptr, nullptr);
    {
        const fault::FailAllocations plan(1, 2);
        EXPECT_EQ(q_add_queue(queue, &data, 1, nullptr), nullptr);
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_EQ(q_add_list(queue, &data, 0, nullptr), nullptr);
        EXPECT_EQ(plan.failed(), 2u);
    }
    EXPECT_EQ(q_queuecount(queue), 0u);
    EXPECT_EQ(q_listcount(queue, 0), 0u);
    EXPECT_NE(q_add_queue(queue, &data, 1, nullptr), nullptr);
    EXPECT_NE(q_add_list(queue, &data, 0, nullptr), nullptr);
    EXPECT_EQ(q_exit(queue, nullptr), 0);
}

TEST(QueueFault, NothingButAddingAllocates)
{
    int data = 0;
    q_queue *const queue = q_init(4, 2, match, give_up, nullptr, nullptr);
    q_add_queue(queue, &data, 1, nullptr);
    const size_t before = fault::allocations_made();
    q_q2l(queue, 0, 1);
    q_l2l(queue, 0, 1, reinterpret_cast<uintptr_t>(&data));
    q_refer(queue, 1, 0);
    q_delete(
        queue, [](void *, void *) { return 1; }, nullptr, nullptr);
    q_exit(queue, nullptr);
    EXPECT_EQ(fault::allocations_made(), before);
}

// Where a size has 32 bits the slots of such a queue cannot even be counted in bytes; elsewhere the
// request is so large that it is left to a failing allocation here.
TEST(QueueFault, RefusesMoreSlotsThanASizeCanCount)
{
    const fault::FailAllocations plan(1);
    errno = 0;
    EXPECT_EQ(q_init(UINT32_MAX, 0, match, give_up, nullptr, nullptr), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(plan.seen(), sizeof(size_t) == 4 ? 0u : 1u);
}

} // namespace
