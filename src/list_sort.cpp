// list_sort.cpp - a top-down merge sort that runs along the list once.
//
// The ring is opened into a chain of next links that ends in null. Each call takes its items off
// the front of what is left of that chain, so no half is ever walked just to find its middle:
//
//     rest:  5 -> 2 -> 9 -> 4 -> null        sort(rest, 2) returns 5 -> 2 and leaves 9 -> 4
//
// The prev links are set in one walk at the end. Until then those of a long chain lead some items
// ahead, so that the processor can be asked to fetch an item before the next merge gets there: the
// items lie all over the memory by then, and waiting for one after the other would take most of the
// time. What such a link leads to is never read, so it may be stale.
#include "vnlib/list_sort.h"

#include <utility>

#include "support/small.h"

namespace vn::list_sort {
namespace {

using Compare = int (*)(list_link *a, list_link *b);

// From so many items on a chain is too long for the caches near the processor. A small build merges
// all chains in the plain way.
constexpr int kManyItems = 1 << 14;

// The items merged last, in a ring: when one leaves it, it gets its link ahead.
class LinksAhead {
public:
    explicit LinksAhead(list_link *first)
    {
        for (list_link *&item : last_) item = first;
    }
    void add(list_link *item)
    {
        __builtin_prefetch(item->prev);
        std::exchange(last_[next_++ % kDistance], item)->prev = item;
    }

private:
    static constexpr unsigned kDistance = 16;

    list_link *last_[kDistance];
    unsigned next_ = 0;
};

struct NoLinksAhead {
    explicit NoLinksAhead(list_link *) {}
    void add(list_link *) {}
};

// Of equal items the one of the second chain goes first: callers' orders rely on it.
template <typename Ahead>
list_link *merge(list_link *a, list_link *b, Compare compare)
{
    list_link *merged = nullptr;
    list_link **tail = &merged;
    Ahead ahead(a);
    while (a != nullptr && b != nullptr) {
        list_link *item;
        if (compare(a, b) > 0) {
            item = a;
            a = a->next;
        } else {
            item = b;
            b = b->next;
        }
        ahead.add(item);
        *tail = item;
        tail = &item->next;
    }
    *tail = a != nullptr ? a : b;
    return merged;
}

// `last` marks the call that takes the end of the list: should the caller have counted too few,
// the surplus stays with the last item instead of being lost.
list_link *take_one(list_link *&rest, bool last)
{
    list_link *const taken = rest;
    if (last || taken == nullptr)
        rest = nullptr;
    else
        rest = std::exchange(taken->next, nullptr);
    return taken;
}

// At least two items.
list_link *sort(list_link *&rest, int count, bool last, Compare compare)
{
    list_link *const first =
        count < 4 ? take_one(rest, false) : sort(rest, count / 2, false, compare);
    list_link *const second =
        count == 2 ? take_one(rest, last) : sort(rest, count - count / 2, last, compare);
    return (kSmall || count < kManyItems ? merge<NoLinksAhead> : merge<LinksAhead>)(first, second,
                                                                                    compare);
}

void close_ring(list_link &head, list_link *chain)
{
    list_link *previous = &head;
    for (; chain != nullptr; chain = chain->next) {
        __builtin_prefetch(chain->prev);
        previous->next = chain;
        chain->prev = previous;
        previous = chain;
    }
    previous->next = &head;
    head.prev = previous;
}

} // namespace
} // namespace vn::list_sort

extern "C" void __list_sort(struct list_link *head, int count,
                            int (*compare)(struct list_link *a, struct list_link *b))
{
    if (head == nullptr || compare == nullptr || count < 2 || head->next == head) return;
    list_link *rest = head->next;
    head->prev->next = nullptr;
    vn::list_sort::close_ring(*head, vn::list_sort::sort(rest, count, true, compare));
}
