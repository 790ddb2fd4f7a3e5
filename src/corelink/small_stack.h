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

template <typename Item, size_t kInline>
class SmallStack {
    static_assert(std::is_trivially_copyable_v<Item> && std::is_trivial_v<Item>);

public:
    SmallStack() = default;
    ~SmallStack() { std::free(heap_); }
    SmallStack(const SmallStack &) = delete;
    SmallStack &operator=(const SmallStack &) = delete;

    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] size_t size() const { return size_; }
    [[nodiscard]] Item *items() { return heap_ != nullptr ? heap_ : inline_; }
    Item &top() { return items()[size_ - 1]; }
    void pop() { --size_; }
    void shrink_to(size_t size) { size_ = size; }

    // Without memory the stack stays as it was.
    [[nodiscard]] bool push(const Item &item) { return append(&item, 1); }
    [[nodiscard]] bool append(const Item *more, size_t count) // `more` lies elsewhere
    {
        if (!reserve(count)) return false;
        std::copy_n(more, count, items() + size_);
        size_ += count;
        return true;
    }

private:
    bool reserve(size_t extra)
    {
        if (extra <= capacity_ - size_) return true;
        constexpr size_t kLargest = PTRDIFF_MAX / kItemSize / 2; // doubling cannot wrap
        if (extra > kLargest - size_) return false;
        const size_t wanted = std::max(capacity_ * 2, size_ + extra);
        void *const block = std::realloc(heap_, wanted * kItemSize);
        if (block == nullptr) return false;
        if (heap_ == nullptr) std::memcpy(block, inline_, size_ * kItemSize);
        heap_ = static_cast<Item *>(block);
        capacity_ = wanted;
        return true;
    }

    static constexpr size_t kItemSize = sizeof(Item[1]);

    Item inline_[kInline];
    Item *heap_ = nullptr; // in place of inline_, once that was too small
    size_t size_ = 0;
    size_t capacity_ = kInline;
};

} // namespace vn::corelink
