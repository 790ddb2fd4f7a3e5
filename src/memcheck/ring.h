// ring.h - circular doubly linked lists through the items' own `next` and `prev`.
//
// The list is its sentinel, an item that carries no value: linked to itself when the list is empty,
// so that no operation meets a null link or a special case. Linking allocates nothing.
#pragma once

namespace vn::memcheck {

template <typename T>
void make_empty(T &sentinel)
{
    sentinel.next = sentinel.prev = &sentinel;
}

template <typename T>
void link_after(T &where, T &item)
{
    item.prev = &where;
    item.next = where.next;
    where.next->prev = &item;
    where.next = &item;
}

template <typename T>
void unlink(T &item)
{
    item.prev->next = item.next;
    item.next->prev = item.prev;
}

} // namespace vn::memcheck
