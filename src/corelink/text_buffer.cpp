#include "corelink/text_buffer.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "corelink/tree.h"
#include "vnlib/memcheck.h"

namespace vn::corelink {

char *TextBuffer::finish()
{
    char *text = nullptr;
    if (ok_ && on_heap()) {
        text =
            static_cast<char *>(vn_memcheck_realloc(data_, size_ + 1, site_.function, site_.line));
    } else if (ok_) {
        text = static_cast<char *>(
            vn_memcheck_malloc(std::malloc, size_ + 1, site_.function, site_.line));
        if (text != nullptr) std::memcpy(text, data_, size_);
    }
    if (text == nullptr) return nullptr; // a block that could not be resized is still ours
    text[size_] = '\0';
    data_ = inline_;
    return text;
}

bool TextBuffer::grow(size_t extra)
{
    constexpr size_t kLargest = PTRDIFF_MAX / 2;
    ok_ = false;
    if (extra > kLargest - size_) return false;
    const size_t wanted = std::max(capacity_ * 2, size_ + extra);
    void *const block =
        on_heap() ? vn_memcheck_realloc(data_, wanted, kAppendSite.function, kAppendSite.line)
                  : vn_memcheck_malloc(std::malloc, wanted, kAppendSite.function, kAppendSite.line);
    if (block == nullptr) return false;
    if (!on_heap()) std::memcpy(block, inline_, size_);
    data_ = static_cast<char *>(block);
    capacity_ = wanted;
    ok_ = true;
    return true;
}

void TextBuffer::discard()
{
    if (on_heap()) vn_memcheck_free(std::free, data_, VN_CORELINK_HERE);
    data_ = inline_;
}

} // namespace vn::corelink
