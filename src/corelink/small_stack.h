// small_stack.h - a growing array for walks whose depth the data decides.
//
// The first kInline items lie in the object itself, so that a walk over an ordinary tree allocates
// nothing; deeper ones move to the heap. Items are plain values, copied as bytes.
// Beware: a push or an append may move the items, so no reference into them survives it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace vn::corelink {

// What does not depend on the type of the items.
class StackOfBytes {
public:
    StackOfBytes(const StackOfBytes &) = delete;
    StackOfBytes &operator=(const StackOfBytes &) = delete;

    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] size_t size() const { return size_; }
    void pop() { --size_; }
    void shrink_to(size_t size) { size_ = size; }

protected:
    StackOfBytes(void *inline_items, size_t capacity) : items_(inline_items), capacity_(capacity) {}
    ~StackOfBytes() { std::free(heap_); }

    [[nodiscard]] void *items() const { return items_; }

    // The place for `count` more items, which count as pushed; null without memory.
    [[nodiscard]] void *room(size_t count, size_t item_size)
    {
        if (count > capacity_ - size_ && !grow(count, item_size)) return nullptr;
        size_ += count;
        return static_cast<char *>(items_) + (size_ - count) * item_size;
    }

private:
    bool grow(size_t extra, size_t item_size);

    void *items_;
    void *heap_ = nullptr; // where the items are, once their first place was too small
    size_t size_ = 0;
    size_t capacity_;
};

inline bool StackOfBytes::grow(size_t extra, size_t item_size)
{
    if (extra > PTRDIFF_MAX - size_) return false;
    const size_t wanted = std::max(capacity_ * 2, size_ + extra);
    size_t bytes;
    if (__builtin_mul_overflow(wanted, item_size, &bytes) || bytes > PTRDIFF_MAX) return false;
    void *const block = std::realloc(heap_, bytes);
    if (block == nullptr) return false;
    if (heap_ == nullptr) std::memcpy(block, items_, size_ * item_size);
    items_ = heap_ = block;
    capacity_ = wanted;
    return true;
}

template <typename Item, size_t kInline>
class SmallStack : public StackOfBytes {
    static_assert(std::is_trivially_copyable_v<Item> && std::is_trivial_v<Item>);

public:
    SmallStack() : StackOfBytes(inline_, kInline) {}

    [[nodiscard]] Item *items() { return static_cast<Item *>(StackOfBytes::items()); }
    Item &top() { return items()[size() - 1]; }

    // Without memory the stack stays as it was.
    [[nodiscard]] bool push(const Item &item) { return append(&item, 1); }
    [[nodiscard]] bool append(const Item *more, size_t count) // `more` lies elsewhere
    {
        void *const place = room(count, kItemSize);
        if (place == nullptr) return false;
        std::memcpy(place, more, count * kItemSize);
        return true;
    }

private:
    static constexpr size_t kItemSize = sizeof(Item[1]);

    Item inline_[kInline];
};

} // namespace vn::corelink
