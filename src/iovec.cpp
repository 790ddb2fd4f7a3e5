// iovec.cpp - walks over scatter-gather vectors.
//
//     vec[0]        vec[1]             vec[2]
//     |..........|  |...............|  |.....................|
//          ^ offset                          ^ end
//          first = 0                         last = 2
//
// A sub-range is found as two positions, each an element and a byte count into it, and then cut
// out. A byte count never grows beyond its element, so nothing here can wrap.
#include "vnlib/iovec.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>

#include "vnlib/log.h"

namespace vn::iovecs {
namespace {

using Vector = std::span<const iovec>;

constexpr int kError = 3;

struct Section {
    size_t first; // element with the first byte
    size_t skip;  // bytes of it that lie before the section
    size_t last;  // element with the last byte
    size_t cut;   // bytes of it that lie after the section
    [[nodiscard]] size_t elements() const { return last - first + 1; }
};

Vector view(const iovec *vec, int count)
{
    return {vec, static_cast<size_t>(std::max(count, 0))};
}

// An element of length 0 may have any address, null included, which memcpy must not see.
void copy(void *to, const void *from, size_t length)
{
    if (length != 0) std::memcpy(to, from, length);
}

uint8_t *byte(void *base, size_t offset)
{
    return static_cast<uint8_t *>(base) + offset;
}

// The element in or at whose end `offset` lies; `offset` becomes relative to it.
size_t element_at(Vector vec, size_t &offset)
{
    size_t index = 0;
    while (index < vec.size() && offset > vec[index].iov_len) offset -= vec[index++].iov_len;
    return index;
}

// The section of `length` bytes that starts at `offset`, or nothing if it is not in the vector. A
// start on the very end of an element begins with the next one, yet the element that ended there
// uses up its share of `length`: callers have been built around that.
std::optional<Section> find_section(Vector vec, size_t offset, size_t length)
{
    size_t index = element_at(vec, offset);
    if (index == vec.size()) return std::nullopt;
    Section section{index, offset, 0, 0};
    size_t within = vec[index].iov_len - offset; // what the range takes of this element at most
    if (within == 0) {
        section.first = index + 1;
        section.skip = 0;
        within = vec[index].iov_len;
    }
    while (length > within) {
        length -= within;
        if (++index == vec.size()) return std::nullopt;
        within = vec[index].iov_len;
    }
    if (index < section.first) return std::nullopt;
    section.last = index;
    section.cut = within - length;
    return section;
}

void cut_out(Vector vec, const Section &section, iovec *out)
{
    iovec first = vec[section.first]; // before the copy: `out` may be the start of `vec` itself
    std::copy(vec.begin() + static_cast<ptrdiff_t>(section.first) + 1,
              vec.begin() + static_cast<ptrdiff_t>(section.last) + 1, out + 1);
    first.iov_base = byte(first.iov_base, section.skip);
    first.iov_len -= section.skip;
    out[0] = first;
    out[section.last - section.first].iov_len -= section.cut;
}

} // namespace
} // namespace vn::iovecs

using namespace vn::iovecs;

extern "C" size_t size_iovec(const struct iovec *vec, int count)
{
    size_t size = 0;
    for (const iovec &part : view(vec, count)) size += part.iov_len;
    return size;
}

extern "C" void check_end_of_iov(const struct iovec *vec, int count, size_t *offset, int *index)
{
    while (*index < count && *offset >= vec[*index].iov_len) *offset -= vec[(*index)++].iov_len;
}

extern "C" void linearise_iovec(const struct iovec *vec, unsigned count, uint8_t *buf, size_t max)
{
    for (const iovec &part : Vector(vec, count)) {
        const size_t length = std::min(part.iov_len, max);
        copy(buf, part.iov_base, length);
        buf += length;
        max -= length;
    }
}

extern "C" void delinearise_to_iovec(const struct iovec *vec, int count, const uint8_t *buf,
                                     size_t len)
{
    for (const iovec &part : view(vec, count)) {
        const size_t length = std::min(part.iov_len, len);
        copy(part.iov_base, buf, length);
        buf += length;
        len -= length;
    }
}

extern "C" int fill_iovec_subset(struct iovec **out, unsigned *out_count, size_t length,
                                 size_t offset, struct iovec *spare, unsigned spare_count,
                                 const struct iovec *vec, unsigned count)
{
    const Vector all(vec, count);
    const auto section = find_section(all, offset, length);
    if (!section) {
        __vn_log(kError, "Failed to get IO Vector section");
        return -1;
    }
    const size_t elements = section->elements();
    *out = elements <= spare_count
               ? spare
               : static_cast<iovec *>(std::calloc(elements, sizeof(struct iovec)));
    if (*out == nullptr) return -1;
    cut_out(all, *section, *out);
    *out_count = static_cast<unsigned>(elements);
    return 0;
}
